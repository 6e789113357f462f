// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "support/times.h"

namespace test {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// How long a read waits before the limit, or the program's end, is looked at again.
constexpr milliseconds kLookForOutput{100};
constexpr milliseconds kLookForEnd{10};

[[noreturn]] void execute(std::vector<std::string>& aCommand, int aInput, int aOutput) {
    std::vector<char*> lPointers;
    for (std::string& lArgument : aCommand) {
        lPointers.push_back(lArgument.data());
    }
    lPointers.push_back(nullptr);
    ::dup2(aInput, STDIN_FILENO);
    ::dup2(aOutput, STDOUT_FILENO);
    ::dup2(aOutput, STDERR_FILENO);
    ::execv(lPointers.front(), lPointers.data());
    ::_exit(127);
}

}  // namespace

Program::Program(std::vector<std::string> aCommand) {
    std::array<int, 2> lInput{};
    std::array<int, 2> lOutput{};
    if (::pipe2(lInput.data(), O_CLOEXEC) != 0 || ::pipe2(lOutput.data(), O_CLOEXEC) != 0) {
        return;
    }
    mProcess = ::fork();
    if (mProcess == 0) {
        execute(aCommand, lInput[0], lOutput[1]);
    }
    ::close(lInput[0]);
    ::close(lOutput[1]);
    mInput = Descriptor(lInput[1]);
    mOutputPipe = Descriptor(lOutput[0]);
}

Program::~Program() {
    if (mProcess > 0) {
        signal(SIGKILL);
        wait();
    }
}

std::string Program::beside(const std::string& aName) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / aName;
}

bool Program::readSome(milliseconds aLimit) {
    pollfd lPoll{mOutputPipe.get(), POLLIN, 0};
    if (::poll(&lPoll, 1, static_cast<int>(aLimit.count())) <= 0) {
        return false;
    }
    std::array<char, 65536> lChunk{};
    const ssize_t lCount = ::read(mOutputPipe.get(), lChunk.data(), lChunk.size());
    if (lCount > 0) {
        mOutput.append(lChunk.data(), static_cast<std::size_t>(lCount));
    }
    return lCount > 0;
}

bool Program::waitForOutput(const std::string& aText) {
    const auto lLimit = Clock::now() + kLimit;
    while (mOutput.find(aText) == std::string::npos) {
        if (Clock::now() > lLimit) {
            return false;
        }
        readSome(kLookForOutput);
    }
    return true;
}

const std::string& Program::output() {
    while (readSome(milliseconds::zero())) {
    }
    return mOutput;
}

void Program::signal(int aSignal) const {
    ::kill(mProcess, aSignal);
}

int Program::wait(std::chrono::seconds aLimit) {
    const auto lLimit = Clock::now() + aLimit;
    int lStatus = 0;
    while (::waitpid(mProcess, &lStatus, WNOHANG) == 0) {
        if (Clock::now() > lLimit) {
            signal(SIGKILL);
        }
        readSome(kLookForEnd);
    }
    output();
    mProcess = -1;
    return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -WTERMSIG(lStatus);
}

}  // namespace test
