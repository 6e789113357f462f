// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Gateway.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "LineAssembler.h"
#include "SerialSource.h"
#include "TcpSource.h"
#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "nmea/Sentence.h"
#include "osx/osx.h"
#include "tell.h"

namespace gateway {

namespace {

constexpr unsigned long kQueueBytes = 64UL * 1024UL;
constexpr unsigned long kQueueWaitMs = 200;
constexpr unsigned long kRetryMs = 50;
constexpr int kRetries = 10;  // half a second between attempts to reach the instrument

std::unique_ptr<Source> makeSource(const Options& aOptions) {
    if (aOptions.serialPort != 0) {
        return std::make_unique<SerialSource>(aOptions.serialPort, aOptions.baudRate,
                                              aOptions.parity);
    }
    return std::make_unique<TcpSource>(aOptions.source, aOptions.silenceLimitMs);
}

/// Timers hand their argument back as const, as they leave it alone; it is ours to change.
Gateway& gatewayOf(const void* aGateway) {
    return *static_cast<Gateway*>(const_cast<void*>(aGateway));
}

}  // namespace

Gateway::Gateway(const Options& aOptions)
    : mOptions(aOptions),
      mSource(makeSource(aOptions)),
      mRecorder(aOptions.recordFile, std::chrono::milliseconds(aOptions.syncIntervalMs)),
      mClients(aOptions.textPort, aOptions.framePort) {
    osxMsgQueueInit(kQueueBytes, 0, &mQueue, "sentences");
    osxBeginTask(checkerTask, 0, 0, this, &mChecker, "checker");
    osxBeginTask(readerTask, 0, 0, this, &mReader, "reader");
    mRatesTimer = osxCreateTimer(ratesTimer, this, static_cast<long>(mOptions.rateIntervalMs), 1);
    mSystemTimer =
        osxCreateTimer(systemTimer, this, static_cast<long>(mOptions.systemIntervalMs), 1);
}

Gateway::~Gateway() {
    mReading = false;
    mSource->interrupt();
    osxEndOtherTask(mReader);
    // The checker goes on until then: the reader may be waiting for room in the queue.
    mChecking = false;
    osxEndOtherTask(mChecker);
    osxDestroyTimer(mSystemTimer);
    osxDestroyTimer(mRatesTimer);
    osxMsgQueueDelete(mQueue);
}

void Gateway::readerTask(void* aGateway) {
    static_cast<Gateway*>(aGateway)->readSentences();
}

void Gateway::checkerTask(void* aGateway) {
    static_cast<Gateway*>(aGateway)->checkSentences();
}

void Gateway::ratesTimer(const void* aGateway) {
    gatewayOf(aGateway).printRates();
}

void Gateway::systemTimer(const void* aGateway) {
    // Sending may wait for a slow client, which a loop thread must not: the checker does it.
    gatewayOf(aGateway).mReportDue = true;
}

void Gateway::readSentences() {
    LineAssembler lLines;
    bool lPresent = false;
    while (mReading) {
        unsigned char lByte = 0;
        const Source::Result lResult = mSource->read(lByte);
        if (lResult == Source::Result::kByte) {
            lPresent = true;
            if (lLines.add(lByte)) {
                queueLine(lLines.line());
            }
        } else if (lResult == Source::Result::kLost && mReading) {
            mLosses += lPresent ? 1U : 0U;
            lPresent = false;
            lLines.clear();
            waitForInstrument();
        }
    }
}

void Gateway::waitForInstrument() {
    for (int lTry = 0; lTry < kRetries && mReading; ++lTry) {
        osxSleep(kRetryMs);
    }
}

void Gateway::queueLine(const std::string& aLine) {
    // The queue copies the bytes and leaves them alone; its interface predates const.
    osxMsgSend(mQueue, const_cast<char*>(aLine.data()), aLine.size(), nullptr);
}

void Gateway::checkSentences() {
    std::array<char, LineAssembler::kLongestLine> lBuffer{};
    // What is queued when the reader has ended is handed on, too.
    for (bool lMayBeMore = true; lMayBeMore;) {
        const bool lReaderHasEnded = !mChecking;
        unsigned long lLength = 0;
        const bool lReceived =
            osxMsgRecv(mQueue, lBuffer.data(), lBuffer.size(), &lLength, kQueueWaitMs) == OSX_OK;
        if (lReceived) {
            handOn(std::string(lBuffer.data(), lLength));
        }
        mRecorder.tend();
        if (mReportDue.exchange(false)) {
            reportSystem();
        }
        lMayBeMore = lReceived || !lReaderHasEnded;
    }
}

void Gateway::handOn(const std::string& aLine) {
    if (!nmea::isValid(aLine)) {
        ++mInvalid;
        ACE_DEBUG((LM_DEBUG, "%t gateway: not a sentence [%s]\n", aLine.c_str()));
        return;
    }
    ++mValid;
    mRecorder.write(aLine);
    mClients.send(aLine);
    if (getLogLevel() >= 3) {
        ACE_DEBUG((LM_DEBUG, "%t gateway: [%s]\n", aLine.c_str()));
    }
}

void Gateway::printRates() {
    const unsigned long lValid = mValid;
    const double lPerSecond =
        static_cast<double>(lValid - mValidPrinted) * 1000.0 / mOptions.rateIntervalMs;
    mValidPrinted = lValid;
    tell("%.1f sentences/s, %lu valid, %lu rejected, %lu losses, %d clients\n", lPerSecond, lValid,
         mInvalid.load(), mLosses.load(), mClients.count());
}

void Gateway::reportSystem() {
    mSystem.refresh();
    std::array<char, 80> lBody{};
    std::snprintf(lBody.data(), lBody.size(), "PGWS,%.2f,%ld,%ld", mSystem.getAvgCPU1(),
                  mSystem.getTotalMem(), mSystem.getTotalMemFree());
    const std::string lSentence = nmea::sentence(lBody.data());
    mClients.send(lSentence);
    ACE_DEBUG((LM_INFO, "%t gateway: load and memory [%s]\n", lSentence.c_str()));
}

}  // namespace gateway
