// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The gateway: an instrument's sentences, checked and handed to TCP clients.
///
///     instrument -> reader task -> message queue -> checker task -> clients, file
///
/// A periodic timer prints the rates, another one has the checker report load and memory.
#ifndef EXAMPLES_GATEWAY_GATEWAY_H
#define EXAMPLES_GATEWAY_GATEWAY_H

#include <atomic>
#include <memory>
#include <string>

#include "Clients.h"
#include "Recorder.h"
#include "Source.h"
#include "options.h"
#include "sysinfo/DynamicSysInfo.h"

namespace gateway {

class Gateway {
public:
    explicit Gateway(const Options& aOptions);

    /// Stops the tasks and timers and closes the ports. No event loop may be running any more, so
    /// that no callback is under way.
    ~Gateway();

    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

private:
    static void readerTask(void* aGateway);
    static void checkerTask(void* aGateway);
    static void ratesTimer(const void* aGateway);
    static void systemTimer(const void* aGateway);

    void readSentences();
    void waitForInstrument();
    void queueLine(const std::string& aLine);
    void checkSentences();
    void handOn(const std::string& aLine);
    void printRates();
    void reportSystem();

    Options mOptions;
    std::unique_ptr<Source> mSource;
    Recorder mRecorder;
    Clients mClients;
    DynamicSysInfo mSystem;

    std::atomic<bool> mReading{true};
    std::atomic<bool> mChecking{true};
    std::atomic<bool> mReportDue{false};
    std::atomic<unsigned long> mValid{0};
    std::atomic<unsigned long> mInvalid{0};
    std::atomic<unsigned long> mLosses{0};
    unsigned long mValidPrinted = 0;

    void* mQueue = nullptr;
    void* mReader = nullptr;
    void* mChecker = nullptr;
    void* mRatesTimer = nullptr;
    void* mSystemTimer = nullptr;
};

}  // namespace gateway

#endif
