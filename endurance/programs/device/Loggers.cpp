// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Loggers.h"

#include "ace/Log_Msg.h"

namespace device {

Loggers::Loggers() {
    for (Logger& lLogger : mLoggers) {
        lLogger.all = this;
        lLogger.number = static_cast<int>(&lLogger - mLoggers.data());
        lLogger.task = std::make_unique<Task>(writeLine, &lLogger, kPauseMs);
    }
}

std::string Loggers::end() {
    std::string lLast;
    for (Logger& lLogger : mLoggers) {
        lLogger.task.reset();
        lLast += " " + std::to_string(lLogger.lines);
    }
    return lLast;
}

void Loggers::writeLine(void* aLogger) {
    auto* const lLogger = static_cast<Logger*>(aLogger);
    const auto lBegin = std::chrono::steady_clock::now();
    ACE_DEBUG((LM_DEBUG, "logger %d line %u of those that the watcher must see\n", lLogger->number,
               ++lLogger->lines));
    lLogger->all->times.note(std::chrono::steady_clock::now() - lBegin);
}

}  // namespace device
