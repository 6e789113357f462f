/// @file
/// A program run beside the test.
#ifndef OSX_TESTS_SUPPORT_PROGRAM_H
#define OSX_TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

/// Runs from construction on; killed at the end of its life if it still runs.
class Program {
public:
    /// @param aCommand the program's path and its arguments.
    explicit Program(const std::vector<std::string>& aCommand);
    ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Waits until the program has written a text. @return whether it did within 30 s.
    bool waitForOutput(const std::string& aText) const;

    /// @return what it has written so far, to standard output and standard error.
    std::string output() const;

    /// Sends a signal.
    void signal(int aSignal) const;

    /// Waits for its end, up to 30 s, after which it is killed.
    /// @return its exit status, or 128 and the signal that ended it.
    int wait();

    pid_t pid() const { return mPid; }

private:
    std::string mOutputFile;
    pid_t mPid = -1;
};

}  // namespace test

#endif
