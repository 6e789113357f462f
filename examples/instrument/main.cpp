// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A simulated GPS receiver, reached by TCP, a pseudo terminal or a serial port.

#include <csignal>
#include <cstdio>
#include <set>

#include "Line.h"
#include "Receiver.h"
#include "ace/SOCK_Stream.h"
#include "options.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

/// Whoever is connected. Everything here happens on the one thread that runs the event loop.
class Instrument {
public:
    explicit Instrument(const instrument::Options& aOptions)
        : mOptions(aOptions), mReceiver(aOptions.corruptEvery), mLine(aOptions) {
        if (mOptions.port != 0) {
            osxRegisterPort(mPort, mOptions.port, connected, nullptr, nullptr, closed, this);
        }
        mTimer = osxCreateTimer(tick, this, static_cast<long>(mOptions.intervalMs), 1);
    }

    ~Instrument() {
        osxDestroyTimer(mTimer);
        if (mPort != nullptr) {
            osxUnregisterPort(mPort);
        }
    }

    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    bool usable() const { return mLine.usable(); }

private:
    static void connected(void* aSocket, void*& aInstrument) {
        static_cast<Instrument*>(aInstrument)->mClients.insert(aSocket);
    }

    static void closed(void* aSocket, void*& aInstrument) {
        static_cast<Instrument*>(aInstrument)->mClients.erase(aSocket);
    }

    static void tick(const void* aInstrument) {
        static_cast<Instrument*>(const_cast<void*>(aInstrument))->speak();
    }

    void speak() {
        const std::string lSentence = mReceiver.next();
        mLine.write(lSentence);
        for (void* const lClient : mClients) {
            osxSocketSend(lClient, lSentence.data(), lSentence.size());
        }
        if (mOptions.dropEvery != 0 && mReceiver.count() % mOptions.dropEvery == 0) {
            dropClients();
        }
        if (mReceiver.count() == mOptions.sentences) {
            osxStopReactor();
        }
    }

    /// The reactor then notices the end of each connection and calls `closed`.
    void dropClients() {
        for (void* const lClient : mClients) {
            static_cast<ACE_SOCK_Stream*>(lClient)->close_reader();
            static_cast<ACE_SOCK_Stream*>(lClient)->close_writer();
        }
    }

    instrument::Options mOptions;
    instrument::Receiver mReceiver;
    instrument::Line mLine;
    std::set<void*> mClients;
    void* mPort = nullptr;
    void* mTimer = nullptr;
};

/// Signals are taken by a thread of their own, where any call is allowed.
void waitForSignal(void* aSignals) {
    int lSignal = 0;
    sigwait(static_cast<const sigset_t*>(aSignals), &lSignal);
    osxStopReactor();
}

}  // namespace

int main(int aCount, char** aArguments) {
    const instrument::Options lOptions = instrument::parseOptions(aCount, aArguments);

    static sigset_t lSignals;
    sigemptyset(&lSignals);
    sigaddset(&lSignals, SIGINT);
    sigaddset(&lSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &lSignals, nullptr);
    void* lSignalTask = nullptr;
    osxBeginTask(waitForSignal, 0, 0, &lSignals, &lSignalTask, "signals");

    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    const Instrument lInstrument(lOptions);
    if (!lInstrument.usable()) {
        std::fputs("instrument: cannot open the line\n", stderr);
        return 1;
    }
    if (lOptions.port != 0) {
        std::printf("instrument: TCP port %u\n", static_cast<unsigned int>(lOptions.port));
        std::fflush(stdout);
    }
    osxRunReactor();
    return 0;
}
