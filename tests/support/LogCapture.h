// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Catches what the library writes to its log, from every thread.
#ifndef OSX_TESTS_SUPPORT_LOGCAPTURE_H
#define OSX_TESTS_SUPPORT_LOGCAPTURE_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ace/Log_Priority.h"
#include "support/InstalledBackend.h"
#include "support/times.h"

namespace test {

/// One captured line.
struct LogLine {
    ACE_Log_Priority priority;
    std::string text;    ///< As written, the thread id expanded.
    std::string module;  ///< File name handed to `conditional_set`.
    int sourceLine;
    int status;
    int errnum;
};

/// While one lives, log lines go to it instead of standard error. One at a time.
class LogCapture : public LineBackend {
public:
    /// @return all lines so far.
    std::vector<LogLine> lines() const;

    /// @return the texts so far; a leading thread id is shown as "%t".
    std::vector<std::string> texts() const;

    /// @return how many lines have this text (see `texts`).
    std::size_t count(const std::string& aText) const;

    /// @return how many lines contain this text.
    std::size_t countContaining(const std::string& aPart) const;

    /// Waits until that many lines contain a text. @return whether they came in time.
    bool waitForContaining(const std::string& aPart, std::size_t aCount = 1,
                           std::chrono::seconds aLimit = kLimit) const;

    void clear();

    ssize_t log(ACE_Log_Record& aRecord) override;

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mArrived;
    std::vector<LogLine> mLines;
    InstalledBackend mInstalled{*this};
};

/// Sets the debug level and ACE's debug switch for one test, and restores both.
class TraceLevel {
public:
    explicit TraceLevel(unsigned int aLevel, bool aDebug = true);
    ~TraceLevel();
    TraceLevel(const TraceLevel&) = delete;
    TraceLevel& operator=(const TraceLevel&) = delete;

private:
    unsigned int mFormerLevel;
    bool mFormerDebug;
};

}  // namespace test

#endif
