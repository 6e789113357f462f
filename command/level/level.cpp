// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "level/level.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <optional>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "devices/DeviceList.h"
#include "osx/osx.h"
#include "record/entry.h"

namespace command {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 8192;
/// A device may take the level before it takes the connection that the answer comes on.
constexpr seconds kAskAgain{1};

/// @return why the level could not be sent; empty if it was.
std::string send(const std::string& aAddress, unsigned long aLevel) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, aAddress.c_str()) != 0) {
        return aAddress + ": " + std::strerror(errno);
    }
    const std::string lText = std::to_string(aLevel);
    const bool lIsSent = osxSocketSend(lSocket, lText.data(), lText.size()) == 0;
    const int lError = errno;
    osxCloseSocketAndRelease(lSocket);
    return lIsSent ? "" : aAddress + ": " + std::strerror(lError);
}

class Setter : public Consumer {
public:
    Setter(const std::vector<Device>& aDevices, unsigned long aLevel, seconds aWait,
           Output& aOutput, Stop& aStop)
        : mDevices(aDevices),
          mStates(aDevices.size()),
          mLevel(aLevel),
          mAnswer("NewLogLevelData set the debug level to [" + std::to_string(aLevel) + "]"),
          mEnd(steady_clock::now() + aWait),
          mOutput(aOutput),
          mStop(aStop) {}

    bool take(const Event& aEvent) override {
        State& lState = mStates[aEvent.device];
        if (aEvent.kind == Kind::kConnected) {
            lState.isConnected = true;
            lState.trouble.clear();
            ask(aEvent.device);
        } else if (aEvent.kind == Kind::kDisconnected || aEvent.kind == Kind::kUnreachable) {
            lState.isConnected = false;
            lState.trouble = markText(aEvent);
        } else if (aEvent.kind == Kind::kLine && !lState.isConfirmed &&
                   aEvent.text.find(mAnswer) != std::string::npos) {
            lState.isConfirmed = true;
            ++mConfirmed;
            mOutput.write(mDevices[aEvent.device].name + ": level " + std::to_string(mLevel) +
                          ", it says: " + forTerminal(aEvent.text) + "\n");
        }
        return mConfirmed < mDevices.size();
    }

    void rest() override {
        mOutput.flush();
        const auto lNow = steady_clock::now();
        for (std::uint32_t lDevice = 0; lDevice < mStates.size(); ++lDevice) {
            const State& lState = mStates[lDevice];
            if (lState.isConnected && !lState.isConfirmed && lNow - lState.asked > kAskAgain) {
                ask(lDevice);
            }
        }
        if (lNow > mEnd) {
            mStop.ask();
        }
    }

    /// @return whether all devices have the level; says which do not.
    bool tellOthers() {
        for (std::size_t lDevice = 0; lDevice < mStates.size(); ++lDevice) {
            const State& lState = mStates[lDevice];
            if (!lState.isConfirmed) {
                const std::string lWhy = lState.trouble.empty() ? "no answer came" : lState.trouble;
                mOutput.write(mDevices[lDevice].name + ": not confirmed: " + forTerminal(lWhy) +
                              "\n");
            }
        }
        mOutput.flush();
        return mConfirmed == mDevices.size();
    }

private:
    struct State {
        bool isConnected = false;
        bool isConfirmed = false;
        steady_clock::time_point asked;
        std::string trouble;
    };

    void ask(std::uint32_t aDevice) {
        State& lState = mStates[aDevice];
        const Device& lDevice = mDevices[aDevice];
        lState.asked = steady_clock::now();
        lState.trouble = send(addressOf(lDevice.host, lDevice.levelPort), mLevel);
    }

    const std::vector<Device>& mDevices;
    std::vector<State> mStates;
    const unsigned long mLevel;
    const std::string mAnswer;
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
    const auto lLevel = toNumber(lLast, 0, 0x7FFFFFFFUL);
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
