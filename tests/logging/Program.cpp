#include "logging/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>

namespace test {

namespace {

constexpr std::chrono::seconds kOutputLimit{30};
constexpr int kPollMs = 100;

void execute(std::vector<std::string>& aArguments, int aInput, int aOutput) {
    std::vector<char*> lPointers;
    for (std::string& lArgument : aArguments) {
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

Program::Program(std::vector<std::string> aArguments) : mProcess(-1) {
    std::array<int, 2> lInput{};
    std::array<int, 2> lOutput{};
    if (::pipe2(lInput.data(), O_CLOEXEC) != 0 || ::pipe2(lOutput.data(), O_CLOEXEC) != 0) {
        return;
    }
    mProcess = ::fork();
    if (mProcess == 0) {
        execute(aArguments, lInput[0], lOutput[1]);
    }
    ::close(lInput[0]);
    ::close(lOutput[1]);
    mInput = Descriptor(lInput[1]);
    mOutputPipe = Descriptor(lOutput[0]);
}

Program::~Program() {
    if (mProcess > 0) {
        end(SIGKILL);
    }
}

std::string Program::beside(const std::string& aName) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / aName;
}

bool Program::readSome(int aTimeoutMs) {
    pollfd lPoll{mOutputPipe.get(), POLLIN, 0};
    if (::poll(&lPoll, 1, aTimeoutMs) <= 0) {
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
    const auto lLimit = std::chrono::steady_clock::now() + kOutputLimit;
    while (mOutput.find(aText) == std::string::npos) {
        if (std::chrono::steady_clock::now() > lLimit) {
            return false;
        }
        readSome(kPollMs);
    }
    return true;
}

int Program::wait(std::chrono::seconds aLimit) {
    const auto lLimit = std::chrono::steady_clock::now() + aLimit;
    int lStatus = 0;
    while (::waitpid(mProcess, &lStatus, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > lLimit) {
            ::kill(mProcess, SIGKILL);
        }
        readSome(10);
    }
    while (readSome(0)) {
    }
    mProcess = -1;
    return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -WTERMSIG(lStatus);
}

int Program::end(int aSignal) {
    ::kill(mProcess, aSignal);
    return wait();
}

}  // namespace test
