// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Tasks that write numbered lines, and how long each line took them.
#ifndef ENDURANCE_DEVICE_LOGGERS_H
#define ENDURANCE_DEVICE_LOGGERS_H

#include <array>
#include <memory>
#include <string>

#include "Task.h"
#include "Times.h"

namespace device {

class Loggers {
public:
    static constexpr int kCount = 8;
    static constexpr unsigned long kPauseMs = 100;

    Loggers();

    /// Ends the tasks. @return the number of the last line of each.
    std::string end();

    Times times;

private:
    struct Logger {
        Loggers* all = nullptr;
        int number = 0;
        unsigned int lines = 0;
        std::unique_ptr<Task> task;
    };

    static void writeLine(void* aLogger);

    std::array<Logger, kCount> mLoggers;
};

}  // namespace device

#endif
