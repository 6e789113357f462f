// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Access to members that ACE hides: an explicit instantiation of a template may name what is
// private.
#include "base/aceLog.h"

#include <algorithm>
#include <cstddef>

#include "ace/Log_Record.h"

namespace osx {

namespace {

template <u_long& aFlags, u_long& aProcessMask, u_long& aNewThreadsMask, std::ptrdiff_t& aOffset,
          auto aText, auto aTimestamp>
struct LogAccess {
    friend u_long& flagsOfLogging() { return aFlags; }
    friend u_long maskWithoutLog() { return aProcessMask | aNewThreadsMask; }
    friend std::ptrdiff_t offsetInTexts() { return aOffset; }
    friend char* textOf(const ACE_Log_Msg& aLog) { return aLog.*aText; }
    friend int timestampNumber(const ACE_Log_Msg& aLog) { return aLog.*aTimestamp; }
};
u_long& flagsOfLogging();
u_long maskWithoutLog();
std::ptrdiff_t offsetInTexts();
char* textOf(const ACE_Log_Msg& aLog);
int timestampNumber(const ACE_Log_Msg& aLog);
template struct LogAccess<ACE_Log_Msg::flags_, ACE_Log_Msg::process_priority_mask_,
                          ACE_Log_Msg::default_priority_mask_, ACE_Log_Msg::msg_off_,
                          &ACE_Log_Msg::msg_, &ACE_Log_Msg::timestamp_>;

}  // namespace

u_long& logFlags() {
    return flagsOfLogging();
}

bool isEnabled(ACE_Log_Msg* aLog, ACE_Log_Priority aPriority) {
    return aLog == nullptr ? (maskWithoutLog() & static_cast<u_long>(aPriority)) != 0
                           : aLog->log_priority_enabled(aPriority) != 0;
}

TextRoom roomForLine(const ACE_Log_Msg& aLog) {
    constexpr std::size_t kSize = ACE_Log_Record::MAXLOGMSGLEN;
    TextRoom lRoom{textOf(aLog), kSize};
    if (lRoom.begin != nullptr) {
        lRoom.skip(std::min(static_cast<std::size_t>(offsetInTexts()), kSize - 1));
    }
    return lRoom;
}

Timestamp timestampOf(const ACE_Log_Msg& aLog) {
    return static_cast<Timestamp>(timestampNumber(aLog));
}

}  // namespace osx
