// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "level/level.h"

#include <chrono>
#include <memory>
#include <optional>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "devices/DeviceList.h"
#include "level/LevelRequest.h"

namespace command {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 8192;

class Setter : public Consumer {
public:
    Setter(const std::vector<Device>& aDevices, unsigned long aLevel, seconds aWait,
           Output& aOutput, Stop& aStop)
        : mDevices(aDevices), mEnd(steady_clock::now() + aWait), mOutput(aOutput), mStop(aStop) {
        for (const Device& lDevice : aDevices) {
            mRequests.emplace_back(lDevice, aLevel, false);
        }
    }

    bool take(const Event& aEvent) override {
        LevelRequest& lRequest = mRequests[aEvent.device];
        if (lRequest.take(aEvent)) {
            ++mConfirmed;
            mOutput.write(mDevices[aEvent.device].name + ": level " +
                          std::to_string(lRequest.level()) +
                          ", it says: " + forTerminal(lRequest.answer()) + "\n");
        }
        ask(lRequest);
        return mConfirmed < mDevices.size();
    }

    void rest() override {
        mOutput.flush();
        for (LevelRequest& lRequest : mRequests) {
            ask(lRequest);
        }
        if (steady_clock::now() > mEnd) {
            mStop.ask();
        }
    }

    /// @return whether all devices have the level; says which do not.
    bool tellOthers() {
        for (std::size_t lDevice = 0; lDevice < mRequests.size(); ++lDevice) {
            if (!mRequests[lDevice].isConfirmed()) {
                mOutput.write(mDevices[lDevice].name + ": not confirmed: " +
                              forTerminal(mRequests[lDevice].trouble()) + "\n");
            }
        }
        mOutput.flush();
        return mConfirmed == mDevices.size();
    }

private:
    static void ask(LevelRequest& aRequest) {
        const auto lNow = steady_clock::now();
        if (aRequest.isDue(lNow)) {
            aRequest.noteSent(sendLevel(aRequest.device(), aRequest.level()), lNow);
        }
    }

    const std::vector<Device>& mDevices;
    std::vector<LevelRequest> mRequests;
    const steady_clock::time_point mEnd;
    Output& mOutput;
    Stop& mStop;
    std::size_t mConfirmed = 0;
};

/// Takes the level off the end of the words.
std::optional<unsigned long> takeLevel(std::vector<std::string>& aWords) {
    const std::string& lLast = aWords.back();
    if (lLast.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const auto lLevel = toNumber(lLast, 0, kHighestLevel);
    if (!lLevel) {
        failInput("'" + lLast + "' is no level: those from 0 to 9 differ");
    }
    aWords.pop_back();
    return lLevel;
}

}  // namespace

int level(const LevelOptions& aOptions) {
    std::vector<std::string> lWords = aOptions.words;
    const auto lLevel = lWords.empty() ? std::nullopt : takeLevel(lWords);
    auto lDevices = DeviceList::find(aOptions.deviceFile).chosen(lWords);
    if (lLevel && lDevices.empty()) {
        failInput("which device's level? As in: osx level gps1 " + aOptions.words.back());
    }
    Stop lStop;
    Output lOutput(&lStop);
    if (!lLevel) {
        lOutput.write(levelsText());
        lOutput.flush();
        return kDone;
    }
    Session lSession(lStop, kLongestLine);
    for (Device& lDevice : lDevices) {
        if (aOptions.levelPort != 0) {
            lDevice.levelPort = static_cast<unsigned short>(aOptions.levelPort);
        }
        lSession.add(addressOf(lDevice.host, lDevice.port),
                     std::make_unique<LineSplitter>(kLongestLine));
    }
    Setter lSetter(lDevices, lLevel.value_or(0), seconds(aOptions.waitS), lOutput, lStop);
    lSession.run(lSetter);
    return lSetter.tellOthers() ? kDone : kFailed;
}

}  // namespace command
