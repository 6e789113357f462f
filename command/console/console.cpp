// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/console.h"

#include <chrono>
#include <cstdio>
#include <memory>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "console/Site.h"
#include "console/settings.h"
#include "record/entry.h"

namespace command {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// As much as a device writes in one piece, and twice.
constexpr std::size_t kLongestLine = 8192;
/// Each write to the history is a transaction.
constexpr milliseconds kBetweenWrites{100};

/// Passes on what comes from the devices.
class Intake : public Consumer {
public:
    Intake(DeviceBoard& aBoard, Feed& aFeed, History& aHistory, LevelDesk& aLevels)
        : mBoard(aBoard), mFeed(aFeed), mHistory(aHistory), mLevels(aLevels) {}

    bool take(const Event& aEvent) override {
        mBoard.take(aEvent);
        mLevels.take(aEvent);
        Item lItem = numbered(itemOf(aEvent, mBoard.device(aEvent.device).name));
        mHistory.add(lItem);
        mFeed.add(lItem);
        return true;
    }

    void rest() override {
        const auto lNow = steady_clock::now();
        if (lNow - mWritten < kBetweenWrites) {
            return;
        }
        mWritten = lNow;
        mHistory.add(mBoard.takePoints(now()));
        write();
    }

    void write() {
        mHistory.flush();
        for (const History::Remark& lRemark : mHistory.takeRemarks()) {
            tell(lRemark);
        }
    }

private:
    Item numbered(Item aItem) {
        aItem.id = mFeed.newest() + 1;
        return aItem;
    }

    void tell(const History::Remark& aRemark) {
        std::fprintf(stderr, "osx: history: %s\n", forTerminal(aRemark.line).c_str());
        Event lMark;
        lMark.kind = aRemark.kind;
        lMark.time = now();
        lMark.text = aRemark.text;
        lMark.count = aRemark.count;
        const Item lItem = numbered(itemOf(lMark, ""));
        if (!aRemark.isKept) {
            mHistory.add(lItem);
        }
        mFeed.add(lItem);
    }

    DeviceBoard& mBoard;
    Feed& mFeed;
    History& mHistory;
    LevelDesk& mLevels;
    steady_clock::time_point mWritten;
};

}  // namespace

int console(const ConsoleOptions& aOptions) {
    const ConsoleSettings lSettings = settingsOf(aOptions);
    const DeviceList lList = DeviceList::find(aOptions.deviceFile);
    const auto lDevices = lList.chosen(aOptions.devices);
    Stop lStop;
    History lHistory(lSettings.history, lSettings.limits);
    DeviceBoard lBoard(lDevices, lList);
    Feed lFeed(lHistory.newestAtStart());
    LevelDesk lLevels(lBoard);
    Site lSite(lSettings.listen.host, lSettings.listen.port, lSettings.token,
               {lBoard, lFeed, lHistory, lLevels}, aOptions.version);
    lSite.start();
    Output lOutput(&lStop);
    lOutput.write("the console is at " + lSettings.address + "\n");
    lOutput.flush();
    Session lSession(lStop, kLongestLine);
    for (const Device& lDevice : lDevices) {
        lSession.add(addressOf(lDevice.host, lDevice.port),
                     std::make_unique<LineSplitter>(kLongestLine));
    }
    Intake lIntake(lBoard, lFeed, lHistory, lLevels);
    lSession.run(lIntake);
    lSite.end();
    lIntake.write();
    return kDone;
}

}  // namespace command
