// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Logging to a file and to the network, and the debug level by its port.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "memory/Service.h"

namespace memory {

namespace {

/// All of it, as one set-up makes it.
class Log : public Service {
public:
    const char* name() const override { return "logging"; }
    const char* line() const override { return "RedirectService"; }
    bool start() override {
        setDebugLevelPortNumber(ownPort(0));
        // Also where there is no memory to read the option: other programs use the usual port, too.
        getRedirectService()->setPortNumber(ownPort(1));
        char lPort[8];
        std::snprintf(lPort, sizeof lPort, "%u", ownPort(1));
        char* lArguments[] = {const_cast<char*>("program"),
                              const_cast<char*>("-LogFile"),
                              const_cast<char*>(ownPath("log")),
                              const_cast<char*>("-stderr"),
                              const_cast<char*>("-DebugLevel"),
                              const_cast<char*>("3"),
                              const_cast<char*>("-RedirectPort"),
                              lPort,
                              nullptr};
        int lCount = 8;
        LogInit(lCount, lArguments, true);
        // Also where there was no memory to read the option: it is where lines go without memory.
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
        mFile = lCount == 1 && ACE_Log_Msg::instance()->msg_ostream() != nullptr &&
                !ACE_Log_Msg::instance()->msg_ostream()->fail();
        return lCount == 1;
    }
    bool works() override {
        ACE_DEBUG((LM_DEBUG, "a line\n"));
        return !mFile || isLogged("a line\n");
    }
    void stop() override { LogDeinit(); }

private:
    bool mFile = false;
};

class WatcherClient : public Service {
public:
    const char* name() const override { return "redirect port"; }
    const char* line() const override {
        return loggedOf(
            {"ConnectionAdmin::init", "RedirectService: no memory", "handle_input: no memory"});
    }
    bool needsLine() const override { return mTurnedAway; }
    bool start() override {
        if (getRedirectService()->init() == -1) {
            return false;
        }
        mTurnedAway = loopRuns() && meets(kShortMs) == Met::end;
        return true;
    }
    bool works() override { return meets(kLongMs) == Met::service; }
    void stop() override {
        getRedirectService()->deinit();
        mTurnedAway = false;
    }

private:
    /// A line every few milliseconds, until one comes or the connection ends.
    static Met meets(int aLimitMs) {
        const int lClient = connectTo(ownPort(1));
        ssize_t lLength = -1;
        awaits(
            [&] {
                ACE_DEBUG((LM_DEBUG, "for a watcher\n"));
                char lByte = 0;
                lLength = ::recv(lClient, &lByte, 1, MSG_DONTWAIT);
                return lClient == -1 || lLength >= 0;
            },
            aLimitMs);
        ::close(lClient);
        return lLength == 1 ? Met::service : lLength == 0 ? Met::end : Met::silence;
    }
    bool mTurnedAway = false;
};

class LevelClient : public Service {
public:
    const char* name() const override { return "debug level port"; }
    const char* line() const override { return "handle_input: no memory"; }
    bool needsLine() const override { return mTurnedAway; }
    bool start() override {
        startLoggingServer();
        if (isLogged("Unable to start the Logging service") && !mTold) {
            mTold = true;
            return false;
        }
        mTurnedAway = loopRuns() && setsLevel('4', 4, kShortMs) == Met::end;
        return true;
    }
    bool works() override {
        return setsLevel('3', 3, kLongMs) == Met::service &&
               setsLevel('5', 5, kLongMs) == Met::service;
    }
    void stop() override { mTurnedAway = false; }

private:
    static Met setsLevel(char aDigit, unsigned int aLevel, int aLimitMs) {
        const int lClient = connectTo(ownPort(0));
        bool lEnded = lClient == -1 || ::send(lClient, &aDigit, 1, MSG_NOSIGNAL) != 1;
        awaits(
            [&] {
                char lByte = 0;
                lEnded = lEnded || ::recv(lClient, &lByte, 1, MSG_DONTWAIT) == 0;
                return lEnded || getLogLevel() == aLevel;
            },
            aLimitMs);
        ::close(lClient);
        return getLogLevel() == aLevel ? Met::service : lEnded ? Met::end : Met::silence;
    }
    bool mTold = false;  ///< Of the port that could not be opened, by a line.
    bool mTurnedAway = false;
};

}  // namespace

Services loggingServices() {
    Services lServices;
    lServices.push_back(std::make_unique<Log>());
    lServices.push_back(makeLoop());
    lServices.push_back(std::make_unique<WatcherClient>());
    lServices.push_back(std::make_unique<LevelClient>());
    return lServices;
}

}  // namespace memory
