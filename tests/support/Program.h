// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program that runs beside the test, in a process of its own.
#ifndef OSX_TESTS_SUPPORT_PROGRAM_H
#define OSX_TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/TcpPeer.h"

namespace test {

/// Runs from construction on. Its standard output and standard error are one pipe, which is read
/// only in the calls below: a program that writes much meanwhile waits for its reader.
class Program {
public:
    /// @param aCommand the program's path and its arguments.
    explicit Program(std::vector<std::string> aCommand);
    /// Kills it if it still runs.
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// @return the path of a program that was built beside the running one.
    static std::string beside(const std::string& aName);

    /// Reads its output up to a text, for up to 30 s. @return whether that came.
    bool waitForOutput(const std::string& aText);

    /// @return all that it has written so far.
    const std::string& output();

    /// Ends its standard input.
    void endInput() { mInput.reset(); }

    /// @return its process id; -1 once it has ended.
    pid_t process() const { return mProcess; }

    /// Sends it a signal.
    void signal(int aSignal) const;

    /// Waits until it has ended; kills it if it has not within a limit.
    /// @return its exit status; minus the number of the signal that ended it.
    int wait(std::chrono::seconds aLimit = std::chrono::seconds(60));

private:
    bool readSome(std::chrono::milliseconds aLimit);

    pid_t mProcess = -1;     ///< -1 once it has ended, or if it could not be started.
    Descriptor mInput;       ///< Writes to its standard input.
    Descriptor mOutputPipe;  ///< Reads what it writes.
    std::string mOutput;     ///< What was read of that.
};

}  // namespace test

#endif
