/// @file
/// A program running as a process of its own, with its output caught.
#ifndef OSX_TESTS_LOGGING_PROGRAM_H
#define OSX_TESTS_LOGGING_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/TcpPeer.h"

namespace test {

class Program {
public:
    /// Starts it. @param aArguments the first is the path.
    explicit Program(std::vector<std::string> aArguments);
    /// Kills it if it still runs.
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// @return the path of a program that was built beside the running one.
    static std::string beside(const std::string& aName);

    /// Reads its output up to a text, for up to 30 s. @return whether that came.
    bool waitForOutput(const std::string& aText);

    /// Ends its standard input.
    void endInput() { mInput.close(); }

    /// Waits until it has ended; kills it if it has not within a limit.
    /// @return its exit status; minus the number of the signal that ended it.
    int wait(std::chrono::seconds aLimit = std::chrono::seconds(60));

    /// Sends it a signal, and waits. @return as `wait`.
    int end(int aSignal);

    /// @return what it has written to standard output and standard error, read so far; everything
    ///         after `wait`.
    const std::string& output() const { return mOutput; }

private:
    bool readSome(int aTimeoutMs);

    pid_t mProcess;
    Descriptor mInput;
    Descriptor mOutputPipe;
    std::string mOutput;
};

}  // namespace test

#endif
