// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "frames/frames.h"

#include <memory>
#include <nlohmann/json.hpp>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "devices/DeviceList.h"
#include "record/entry.h"

namespace command {

namespace {

class Viewer : public Consumer {
public:
    Viewer(const FramesOptions& aOptions, Output& aOutput) : mOptions(aOptions), mOutput(aOutput) {}

    bool take(const Event& aEvent) override {
        if (aEvent.kind != Kind::kBlock) {
            const Entry lMark{aEvent, mOptions.address};
            mOutput.write(mOptions.json ? toJson(lMark) + "\n"
                                        : forPeople(aEvent.time) + " -- " +
                                              forTerminal(markText(aEvent)) + "\n");
            return true;
        }
        mOutput.write((mOptions.json ? asJson(aEvent) : asText(aEvent)) + "\n");
        return ++mShown != mOptions.count;
    }

    void rest() override {
        mOutput.flush();
        mOutput.look();
    }

private:
    std::string asText(const Event& aEvent) const {
        return forPeople(aEvent.time) + " " + std::to_string(aEvent.text.size()) + " " +
               (mOptions.hex ? toHex(aEvent.text) : forTerminal(aEvent.text));
    }

    std::string asJson(const Event& aEvent) const {
        nlohmann::ordered_json lObject;
        lObject["time"] = forPrograms(aEvent.time);
        lObject["length"] = aEvent.text.size();
        if (mOptions.hex) {
            lObject["hex"] = toHex(aEvent.text);
        } else {
            lObject["text"] = toUtf8(aEvent.text);
        }
        return lObject.dump();
    }

    const FramesOptions& mOptions;
    Output& mOutput;
    unsigned long mShown = 0;
};

}  // namespace

int frames(const FramesOptions& aOptions) {
    const Device lDevice = parseDevice(aOptions.address, 0);
    Stop lStop;
    Output lOutput(&lStop);
    Viewer lViewer(aOptions, lOutput);
    Session lSession(lStop, aOptions.limit);
    lSession.add(addressOf(lDevice.host, lDevice.port),
                 std::make_unique<BlockSplitter>(aOptions.limit));
    lSession.run(lViewer);
    return kDone;
}

}  // namespace command
