// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A bad link between two network namespaces: it loses packets, delays each one by another time, so
/// that they overtake one another, and can be cut. It stands between two TUN devices called "link",
/// one in each namespace, and needs nothing of the kernel but these.
///
///     lossy_link NEAR FAR SEED LOSS DELAY JITTER    per cent, milliseconds, milliseconds
///
/// On standard input: "cut", "mend", "count"; it ends with its input. A cut loses what is under
/// way, too, and neither side is told.
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "base/Descriptor.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr std::size_t kLongestPacket = 65536;

void check(bool aHolds, const char* aWhat) {
    if (!aHolds) {
        std::perror(aWhat);
        std::exit(1);
    }
}

/// Makes the device of a namespace. What comes out of the namespace by it can be read here.
osx::Descriptor openDevice(const std::string& aNamespace) {
    const osx::Descriptor lPlace(
        ::open(("/run/netns/" + aNamespace).c_str(), O_RDONLY | O_CLOEXEC));
    check(lPlace.get() >= 0 && ::setns(lPlace.get(), CLONE_NEWNET) == 0, aNamespace.c_str());
    osx::Descriptor lDevice(::open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    ifreq lRequest{};
    std::strcpy(lRequest.ifr_name, "link");
    lRequest.ifr_flags = IFF_TUN | IFF_NO_PI;
    check(lDevice.get() >= 0 && ::ioctl(lDevice.get(), TUNSETIFF, &lRequest) == 0, "TUNSETIFF");
    return lDevice;
}

struct Quality {
    std::mt19937 chance;
    double lossPercent;
    microseconds delay;
    microseconds jitter;

    bool loses() { return std::uniform_real_distribution<>(0, 100)(chance) < lossPercent; }

    microseconds time() {
        std::uniform_int_distribution<microseconds::rep> lAround(-jitter.count(), jitter.count());
        return delay + microseconds(lAround(chance));
    }
};

struct Packet {
    Clock::time_point due;
    unsigned long number;
    std::size_t to;
    std::vector<char> bytes;

    bool operator<(const Packet& aOther) const { return due > aOther.due; }
};

class Link {
public:
    Link(const std::string& aNear, const std::string& aFar, const Quality& aQuality)
        : mQuality(aQuality), mDevices{openDevice(aNear), openDevice(aFar)} {}

    /// Carries packets until standard input ends.
    void run() {
        for (bool lGoesOn = true; lGoesOn;) {
            std::array<pollfd, 3> lEvents{{{mDevices[0].get(), POLLIN, 0},
                                           {mDevices[1].get(), POLLIN, 0},
                                           {STDIN_FILENO, POLLIN, 0}}};
            waitFor(lEvents);
            take(0);
            take(1);
            if (!mHeld) {
                deliver();
            }
            lGoesOn = lEvents[2].revents == 0 || obey();
        }
    }

private:
    template <typename Events>
    void waitFor(Events& aEvents) const {
        timespec lLimit{};
        const bool lWaits = mHeld || mUnderWay.empty();
        if (!lWaits) {
            const auto lLeft = std::max(mUnderWay.top().due - Clock::now(), Clock::duration(0));
            lLimit.tv_sec = static_cast<time_t>(
                std::chrono::duration_cast<std::chrono::seconds>(lLeft).count());
            lLimit.tv_nsec = static_cast<long>((lLeft % std::chrono::seconds(1)).count());
        }
        ::ppoll(aEvents.data(), aEvents.size(), lWaits ? nullptr : &lLimit, nullptr);
    }

    /// Takes all packets that have come from one side.
    void take(std::size_t aFrom) {
        for (ssize_t lLength = 0;
             (lLength = ::read(mDevices[aFrom].get(), mRoom.data(), mRoom.size())) > 0;) {
            ++mTaken;
            if (mCut) {
                ++mCutOff;
            } else if (mQuality.loses()) {
                ++mLost;
            } else {
                mUnderWay.push({Clock::now() + mQuality.time(),
                                mTaken,
                                1 - aFrom,
                                {mRoom.data(), mRoom.data() + lLength}});
            }
        }
    }

    void deliver() {
        const auto lNow = Clock::now();
        for (; !mUnderWay.empty() && mUnderWay.top().due <= lNow; mUnderWay.pop()) {
            const Packet& lPacket = mUnderWay.top();
            unsigned long& lLatest = mLatest.at(lPacket.to);
            mOvertaken += lPacket.number < lLatest ? 1 : 0;
            lLatest = std::max(lLatest, lPacket.number);
            const ssize_t lWritten =
                ::write(mDevices.at(lPacket.to).get(), lPacket.bytes.data(), lPacket.bytes.size());
            mLost += lWritten < 0 ? 1 : 0;
        }
    }

    /// @return false when there is no more input.
    bool obey() {
        std::string lCommand;
        if (!std::getline(std::cin, lCommand)) {
            return false;
        }
        if (lCommand == "count") {
            std::printf("taken %lu lost %lu cut %lu overtaken %lu\n", mTaken, mLost, mCutOff,
                        mOvertaken);
        } else {
            change(lCommand);
            std::printf("done %s\n", lCommand.c_str());
        }
        std::fflush(stdout);
        return true;
    }

    void change(const std::string& aCommand) {
        mHeld = aCommand == "hold";
        mCut = aCommand == "cut";
        if (mCut) {
            mCutOff += mUnderWay.size();
            mUnderWay = {};
        }
    }

    Quality mQuality;
    std::array<osx::Descriptor, 2> mDevices;
    std::array<char, kLongestPacket> mRoom{};
    std::priority_queue<Packet> mUnderWay;
    bool mCut = false;
    bool mHeld = false;
    unsigned long mTaken = 0;
    unsigned long mLost = 0;
    unsigned long mCutOff = 0;
    unsigned long mOvertaken = 0;
    /// The number of the youngest packet that each side has been given.
    std::array<unsigned long, 2> mLatest{};
};

double number(const char* aText) {
    return std::strtod(aText, nullptr);
}

microseconds milliseconds(const char* aText) {
    return microseconds(static_cast<long>(number(aText) * 1000));
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 7) {
        std::fputs("usage: lossy_link NEAR FAR SEED LOSS DELAY JITTER\n", stderr);
        return 2;
    }
    const auto lSeed = static_cast<std::mt19937::result_type>(number(aArguments[3]));
    Link lLink(aArguments[1], aArguments[2],
               {std::mt19937(lSeed), number(aArguments[4]), milliseconds(aArguments[5]),
                milliseconds(aArguments[6])});
    std::puts("ready");
    std::fflush(stdout);
    lLink.run();
    return 0;
}
