#include "base/diagnosticLine.h"

#include <cstdarg>

#include "ace/Log_Msg.h"

namespace osx {

void DiagnosticLine::write(DiagnosticLine aLine, ACE_Log_Priority aPriority, int aStatus,
                           const char* aFormat, ...) noexcept {
    if (ACE_Log_Msg* lLog = ACE_Log_Msg::instance()) {
        lLog->conditional_set(aLine.mModule, aLine.mLine, aStatus, aLine.mErrno);
        va_list lArguments;
        va_start(lArguments, aFormat);
        lLog->log(aFormat, aPriority, lArguments);
        va_end(lArguments);
    }
    errno = aLine.mErrno;
}

}  // namespace osx
