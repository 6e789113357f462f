// Access to members that ACE hides: an explicit instantiation of a template may name what is
// private.
#include "base/aceLog.h"

#include <algorithm>
#include <cstddef>

#include "ace/Log_Record.h"

namespace osx {

namespace {

template <u_long& aFlags, std::ptrdiff_t& aOffset, auto aText, auto aTimestamp>
struct LogAccess {
    friend u_long& flagsOfLogging() { return aFlags; }
    friend std::ptrdiff_t offsetInTexts() { return aOffset; }
    friend char* textOf(const ACE_Log_Msg& aLog) { return aLog.*aText; }
    friend int timestampNumber(const ACE_Log_Msg& aLog) { return aLog.*aTimestamp; }
};
u_long& flagsOfLogging();
std::ptrdiff_t offsetInTexts();
char* textOf(const ACE_Log_Msg& aLog);
int timestampNumber(const ACE_Log_Msg& aLog);
template struct LogAccess<ACE_Log_Msg::flags_, ACE_Log_Msg::msg_off_, &ACE_Log_Msg::msg_,
                          &ACE_Log_Msg::timestamp_>;

}  // namespace

u_long& logFlags() {
    return flagsOfLogging();
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
