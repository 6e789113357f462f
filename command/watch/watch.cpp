// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "watch/watch.h"

#include <cstdio>
#include <memory>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "devices/DeviceList.h"

namespace command {

namespace {

/// As much as a device writes in one piece, and twice.
constexpr std::size_t kLongestLine = 8192;

/// Shows and records what comes.
class Watcher : public Consumer {
public:
    Watcher(const std::vector<Device>& aDevices, View& aView, Output& aOutput, Record* aRecord)
        : mDevices(aDevices), mView(aView), mOutput(aOutput), mRecord(aRecord) {}

    bool take(const Event& aEvent) override {
        const Entry lEntry{aEvent, mDevices[aEvent.device].name};
        mOutput.write(mView.show(lEntry));
        if (mRecord != nullptr) {
            mRecord->add(lEntry);
        }
        return true;
    }

    void rest() override {
        mOutput.flush();
        mOutput.look();
        if (mRecord != nullptr) {
            mRecord->flush();
            const std::string lComplaint = mRecord->takeComplaint();
            if (!lComplaint.empty() && lComplaint != mComplaint) {
                std::fprintf(stderr, "osx: cannot record: %s\n", lComplaint.c_str());
            }
            mComplaint = lComplaint;
        }
    }

private:
    const std::vector<Device>& mDevices;
    View& mView;
    Output& mOutput;
    Record* mRecord;
    std::string mComplaint;
};

void tellForeign(std::uint64_t aForeign, const std::string& aFolder) {
    if (aForeign != 0) {
        std::fprintf(stderr, "osx: %s: %llu lines are not of a record\n", aFolder.c_str(),
                     static_cast<unsigned long long>(aForeign));
    }
}

void showRecord(const std::string& aFolder, View& aView, Output& aOutput, const Stop& aStop) {
    tellForeign(readRecord(aFolder,
                           [&](const Entry& aEntry) {
                               aOutput.write(aView.show(aEntry));
                               return !aStop.isAsked();
                           }),
                aFolder);
    aOutput.flush();
}

}  // namespace

int watch(const WatchOptions& aOptions) {
    const auto lDevices = DeviceList::find(aOptions.deviceFile).chosen(aOptions.devices);
    Stop lStop;
    Output lOutput(&lStop);
    View lView(aOptions.view, lOutput.hasColours());
    for (const Device& lDevice : lDevices) {
        lView.expect(lDevice.name);
    }
    if (lView.hasStart() && aOptions.record.empty()) {
        failInput("--since needs --record: only what was recorded has a past");
    }
    if (lView.hasStart() && !recordFiles(aOptions.record).empty()) {
        showRecord(aOptions.record, lView, lOutput, lStop);
    }
    std::unique_ptr<Record> lRecord;
    if (!aOptions.record.empty()) {
        lRecord = std::make_unique<Record>(aOptions.record, aOptions.limits);
    }
    Session lSession(lStop, kLongestLine);
    for (const Device& lDevice : lDevices) {
        lSession.add(addressOf(lDevice.host, lDevice.port),
                     std::make_unique<LineSplitter>(kLongestLine));
    }
    Watcher lWatcher(lDevices, lView, lOutput, lRecord.get());
    lSession.run(lWatcher);
    return kDone;
}

int play(const PlayOptions& aOptions) {
    Stop lStop;
    Output lOutput(&lStop);
    View lView(aOptions.view, lOutput.hasColours());
    showRecord(aOptions.record, lView, lOutput, lStop);
    return kDone;
}

}  // namespace command
