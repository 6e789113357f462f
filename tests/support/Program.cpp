#include "support/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace test {

namespace {

constexpr auto kPause = std::chrono::milliseconds(10);
constexpr int kPauses = 3000;  // 30 s

[[noreturn]] void execute(const std::vector<std::string>& aCommand, int aOutput) {
    ::dup2(aOutput, STDOUT_FILENO);
    ::dup2(aOutput, STDERR_FILENO);
    std::vector<char*> lArguments;
    for (const std::string& lArgument : aCommand) {
        lArguments.push_back(const_cast<char*>(lArgument.c_str()));
    }
    lArguments.push_back(nullptr);
    ::execv(lArguments[0], lArguments.data());
    ::_exit(127);
}

}  // namespace

Program::Program(const std::vector<std::string>& aCommand) {
    char lName[] = "/tmp/osx-program-XXXXXX";
    const int lOutput = ::mkostemp(lName, O_CLOEXEC);
    mOutputFile = lName;
    mPid = ::fork();
    if (mPid == 0) {
        execute(aCommand, lOutput);
    }
    ::close(lOutput);
}

Program::~Program() {
    if (mPid > 0) {
        signal(SIGKILL);
        wait();
    }
    ::unlink(mOutputFile.c_str());
}

bool Program::waitForOutput(const std::string& aText) const {
    for (int lTry = 0; lTry < kPauses; ++lTry) {
        if (output().find(aText) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(kPause);
    }
    return false;
}

std::string Program::output() const {
    std::ostringstream lText;
    lText << std::ifstream(mOutputFile).rdbuf();
    return lText.str();
}

void Program::signal(int aSignal) const {
    ::kill(mPid, aSignal);
}

int Program::wait() {
    int lStatus = 0;
    for (int lTry = 0; ::waitpid(mPid, &lStatus, WNOHANG) == 0; ++lTry) {
        if (lTry == kPauses) {
            signal(SIGKILL);
        }
        std::this_thread::sleep_for(kPause);
    }
    mPid = -1;
    return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : 128 + WTERMSIG(lStatus);
}

}  // namespace test
