// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the loop serves.
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "ace/Event_Handler.h"
#include "ace/Reactor.h"
#include "calling/services.h"
#include "net/ConnectionAdmin.h"
#include "osx/osx.h"

namespace calling {

namespace {

constexpr long kTimerMs = 20;
constexpr long kSlowTimerMs = 150;

void count(const void* aLine) {
    ++static_cast<Count*>(const_cast<void*>(aLine))->successes;
}

/// A timer of one shot, made anew each time.
void beginTimer(const void* aLine) {
    static void* gTimer = nullptr;
    osxDestroyTimer(gTimer);
    gTimer = osxCreateTimer(count, const_cast<void*>(aLine), 1, 0);
}

/// A client that cannot be answered is let go: it would wait for ever.
void answer(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    if (osxSocketSend(aSocket, aData, aLength) != 0) {
        osxCloseSocket(aSocket);
    }
}

long readAndAnswer(void* aSocket, void*&) {
    char lByte = 0;
    unsigned long lCame = 0;
    const bool lAnswered = osxSocketRecv(aSocket, &lByte, 1, lCame) == 0 && lCame == 1 &&
                           osxSocketSend(aSocket, &lByte, 1) == 0;
    return lAnswered ? 0 : -1;
}

ConnectionAdmin& clients() {
    static auto* const gClients = new ConnectionAdmin;
    return *gClients;
}

bool broadcast() {
    std::array<unsigned char, 5> lTick{'t', 'i', 'c', 'k', '\n'};
    return clients().send(lTick.size(), lTick.data()) == 0;
}

/// An application's own handler: of a pair of sockets, and of notifications.
class Own : public ACE_Event_Handler {
public:
    Own(Count& aBytes, Count& aNotes) : mBytes(aBytes), mNotes(aNotes) {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, mPair.data()) ==
            0) {
            ACE_Reactor::instance()->register_handler(mPair[0], this, READ_MASK);
        }
    }
    int handle_input(ACE_HANDLE aHandle) override {
        std::array<char, 64> lBytes;
        mBytes.successes += ::read(aHandle, lBytes.data(), lBytes.size()) > 0 ? 1 : 0;
        return 0;
    }
    int handle_exception(ACE_HANDLE) override {
        ++mNotes.successes;
        return 0;
    }
    void rouse() {
        [[maybe_unused]] const ssize_t lWritten = ::write(mPair[1], ".", 1);
        ACE_Time_Value lNoWait(0);
        ACE_Reactor::instance()->notify(this, EXCEPT_MASK, &lNoWait);
    }

private:
    Count& mBytes;
    Count& mNotes;
    std::array<int, 2> mPair{-1, -1};
};

Own* gOwn = nullptr;

bool rouseOwn() {
    gOwn->rouse();
    return true;
}

}  // namespace

void beginServed(Board& aBoard, const Places& aPlaces) {
    void* lPort = nullptr;
    osxRegisterPort(lPort, aPlaces.echo, nullptr, nullptr, answer, nullptr, nullptr);
    osxRegisterPort(lPort, aPlaces.read, nullptr, readAndAnswer, nullptr, nullptr, nullptr);
    clients().init(aPlaces.broadcast);
    osxCreateTimer(count, &aBoard.add("timer"), kTimerMs, kTimerMs);
    osxCreateTimer(beginTimer, &aBoard.add("timers made anew"), kSlowTimerMs, kSlowTimerMs);
    Count& lBytes = aBoard.add("own handler");
    gOwn = new Own(lBytes, aBoard.add("notifications"));
    beginRounds(aBoard, "rousing", rouseOwn);
    beginRounds(aBoard, "broadcasts", broadcast);
}

}  // namespace calling
