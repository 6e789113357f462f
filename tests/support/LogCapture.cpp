// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/LogCapture.h"

#include <algorithm>
#include <sstream>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "base/debugLevel.h"

namespace test {

namespace {

/// The id that ACE expands "%t" to on the calling thread cannot be known on another one, so a
/// number at the front of a line is taken for it.
std::string withoutThreadId(const std::string& aText) {
    const auto lEnd = aText.find_first_not_of("0123456789");
    if (lEnd == 0 || lEnd == std::string::npos || aText[lEnd] != ' ') {
        return aText;
    }
    return "%t" + aText.substr(lEnd);
}

}  // namespace

ssize_t LogCapture::log(ACE_Log_Record& aRecord) {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mLines.push_back({static_cast<ACE_Log_Priority>(aRecord.type()), aRecord.msg_data(),
                      lLog->file() == nullptr ? "" : lLog->file(), lLog->linenum(),
                      lLog->op_status(), lLog->errnum()});
    mArrived.notify_all();
    return 0;
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    return mLines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> lTexts;
    for (const LogLine& lLine : lines()) {
        lTexts.push_back(withoutThreadId(lLine.text));
    }
    return lTexts;
}

std::size_t LogCapture::count(const std::string& aText) const {
    const auto lTexts = texts();
    return static_cast<std::size_t>(std::count(lTexts.begin(), lTexts.end(), aText));
}

std::size_t LogCapture::countContaining(const std::string& aPart) const {
    const auto lTexts = texts();
    return static_cast<std::size_t>(std::count_if(
        lTexts.begin(), lTexts.end(),
        [&](const std::string& aText) { return aText.find(aPart) != std::string::npos; }));
}

bool LogCapture::waitForContaining(const std::string& aPart, std::size_t aCount,
                                   std::chrono::seconds aLimit) const {
    std::unique_lock<std::mutex> lLock(mMutex);
    return mArrived.wait_for(lLock, aLimit, [&] {
        return static_cast<std::size_t>(
                   std::count_if(mLines.begin(), mLines.end(), [&](const LogLine& aLine) {
                       return aLine.text.find(aPart) != std::string::npos;
                   })) >= aCount;
    });
}

void LogCapture::clear() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mLines.clear();
}

TraceLevel::TraceLevel(unsigned int aLevel, bool aDebug)
    : mFormerLevel(getLogLevel()), mFormerDebug(ACE::debug()) {
    setLogLevel(aLevel);
    ACE::debug(aDebug);
}

TraceLevel::~TraceLevel() {
    setLogLevel(mFormerLevel);
    ACE::debug(mFormerDebug);
}

}  // namespace test
