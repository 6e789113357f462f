// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Lets the gateway live through days of a device's life, one after another without their pauses.
///
/// Usage: soak DAYS GATEWAY INSTRUMENT FIRST-PORT, the two being programs, and the port the first
/// of five. First comes a watcher that never reads. It prints "day NUMBER OWN-KIB RESIDENT-KIB
/// DESCRIPTORS THREADS" after each day, and, at the end, "gateway ended STATUS". What a day has is
/// in `live`.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "soak/Peer.h"
#include "soak/Usage.h"

namespace {

/// @name What a day has
/// @{
constexpr int kReconnects = 200;
constexpr int kLevelChanges = 50;
constexpr int kWatchers = 20;
constexpr int kClockSteps = 1;
/// @}
constexpr long kYearS = 365L * 24 * 3600;

/// The gateway's ports follow the instrument's.
enum Port : unsigned short { kInstrument, kText, kFrames, kDebugLevel, kRedirect };

/// A program that runs in silence.
pid_t start(std::vector<std::string> aCommand) {
    std::vector<char*> lArguments;
    for (std::string& lWord : aCommand) {
        lArguments.push_back(lWord.data());
    }
    lArguments.push_back(nullptr);
    const pid_t lProcess = ::fork();
    if (lProcess == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int lNowhere = ::open("/dev/null", O_RDWR);
        for (const int lDescriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::dup2(lNowhere, lDescriptor);
        }
        ::close(lNowhere);
        ::execvp(lArguments[0], lArguments.data());
        ::_exit(127);
    }
    return lProcess;
}

/// @return what `waitpid` tells.
int end(pid_t aProcess) {
    int lStatus = 0;
    ::kill(aProcess, SIGTERM);
    ::waitpid(aProcess, &lStatus, 0);
    return lStatus;
}

/// The gateway, with its instrument and its standing clients.
class Life {
public:
    Life(const std::string& aGateway, const std::string& aInstrument, unsigned short aFirstPort)
        : mFirstPort(aFirstPort),
          mInstrument(start({aInstrument, "--port", text(kInstrument), "--interval", "5"})),
          mGateway(
              start({aGateway, "--source", "127.0.0.1:" + text(kInstrument), "--port", text(kText),
                     "--frame-port", text(kFrames), "--debug-port", text(kDebugLevel),
                     "-RedirectPort", text(kRedirect), "-LogFile", "/dev/null"})) {
        for (int lClient = 0; lClient < 4; ++lClient) {
            mClients.emplace_back(port(kText));
            mClients.back().readLine();
        }
    }
    ~Life() {
        end(mInstrument);
        std::printf("gateway ended %d\n", end(mGateway));
    }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    /// A watcher that takes nothing costs memory, up to a limit, which the process then keeps for
    /// the next one. Paid before the first day, it hides no growth and is none.
    void stall() {
        soak::Peer lWatcher(port(kRedirect), soak::Peer::Room::kLittle);
        setLevel(3);
        lWatcher.stall();
        setLevel(0);
    }

    void live() {
        std::vector<void (Life::*)()> lEvents;
        lEvents.insert(lEvents.end(), kReconnects, &Life::reconnect);
        lEvents.insert(lEvents.end(), kLevelChanges, &Life::changeLevel);
        lEvents.insert(lEvents.end(), kWatchers, &Life::watch);
        lEvents.insert(lEvents.end(), kClockSteps, &Life::stepClock);
        std::shuffle(lEvents.begin(), lEvents.end(), mChance);
        for (void (Life::* const lEvent)() : lEvents) {
            (this->*lEvent)();
        }
        setLevel(0);
    }

    /// When the gateway has let go those that left; they leave its standing clients.
    soak::Usage restAndMeasure() {
        soak::Usage lUsage = soak::usageOf(mGateway);
        if (mDescriptors == 0) {
            ::sleep(2);
            lUsage = soak::usageOf(mGateway);
            mDescriptors = lUsage.descriptors;
        }
        for (int lTry = 0; lTry < 200 && lUsage.descriptors != mDescriptors; ++lTry) {
            ::usleep(100000);
            lUsage = soak::usageOf(mGateway);
        }
        return lUsage;
    }

private:
    unsigned short port(Port aPort) const {
        return static_cast<unsigned short>(mFirstPort + aPort);
    }
    std::string text(Port aPort) const { return std::to_string(port(aPort)); }

    /// One client goes, with a word or without, and another one comes.
    void reconnect() {
        soak::Peer& lClient = mClients[mChance() % mClients.size()];
        if (mChance() % 2 == 0) {
            lClient.reset();
        }
        lClient = soak::Peer(port(kText));
        lClient.readLine();
        soak::Peer(port(kFrames)).readByte();
    }

    void setLevel(int aLevel) { soak::Peer(port(kDebugLevel)).send(std::to_string(aLevel)); }
    void changeLevel() { setLevel(static_cast<int>(mChance() % 6)); }

    /// With each sentence traced, a line comes soon.
    void watch() {
        soak::Peer lWatcher(port(kRedirect));
        setLevel(3);
        lWatcher.readLine();
    }

    /// By up to a year, forth and back in turn.
    void stepClock() {
        timespec lNow{};
        ::clock_gettime(CLOCK_REALTIME, &lNow);
        mStepS = mStepS > 0 ? -mStepS : static_cast<long>(mChance() % kYearS);
        lNow.tv_sec += static_cast<time_t>(mStepS);
        if (::clock_settime(CLOCK_REALTIME, &lNow) != 0) {
            std::perror("clock_settime");
            std::exit(EXIT_FAILURE);
        }
    }

    const unsigned short mFirstPort;
    const pid_t mInstrument;
    const pid_t mGateway;
    std::mt19937 mChance;
    std::vector<soak::Peer> mClients;
    int mDescriptors = 0;
    long mStepS = 0;
};

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 5) {
        return EXIT_FAILURE;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    Life lLife(aArguments[2], aArguments[3], static_cast<unsigned short>(std::atol(aArguments[4])));
    lLife.stall();
    for (int lDay = 1; lDay <= std::atoi(aArguments[1]); ++lDay) {
        lLife.live();
        const soak::Usage lUsage = lLife.restAndMeasure();
        std::printf("day %d %ld %ld %d %d\n", lDay, lUsage.ownKiB, lUsage.residentKiB,
                    lUsage.descriptors, lUsage.threads);
    }
    return EXIT_SUCCESS;
}
