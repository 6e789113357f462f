// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Tries what happens when a request for memory is refused, each one in a process of its own.
//
//     memory PORT PORT PORT PORT [--show] < TRIALS
//
// A trial is a line "SCENARIO once|good NUMBER": the number counts the requests for memory that
// are made while the scenario's services start and run, and then while they stop and the process
// ends. That request is refused, or it and all that follow until the end of the run or of the
// stop. With memory again each service must work, or its call or a line must have said that it
// does not; then it must work once started again. The answer to a trial is one line:
//
//     SCENARIO once|good NUMBER: STARTING STOPPING REFUSED VERDICT...
//
// the requests made in both halves, how many were refused, and what became of each service that
// did not simply work. What a process did not survive is its last verdict: "signal 11", "status 3",
// or the function of ACE or of the C library that crashed by itself.
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "memory/Service.h"
#include "memory/shortMemory.h"

namespace memory {

namespace {

/// What a trial may take before it is said to hang.
constexpr long kLimitMs = 90000;
constexpr unsigned int kLookS = 5;
constexpr int kPorts = 4;

struct Trial {
    char scenario[32];
    char failing[8];
    long number;
};

unsigned short gPorts[kPorts] = {};
std::string gFolder;
bool gShow = false;
std::FILE* gAnswer = nullptr;
long gLimit = 0;
int gErrors = 2;  ///< Standard error as the program was given it.

bool starts(Service& aService) {
    try {
        return aService.start();
    } catch (...) {
        showCallers("thrown\n");
        std::abort();
    }
}

/// A service that was lost has to work when it is started again, with memory.
const char* restart(Service& aService, const char* aWord) {
    aService.stop();
    if (starts(aService) && aService.works()) {
        return aWord;
    }
    const char* const lForeign = aService.foreign();
    return lForeign != nullptr ? lForeign : "does not come back";
}

const char* judge(Service& aService, bool aStarted) {
    const bool lNeedsLine = aStarted && aService.needsLine();
    // A client may see the end of its connection before the line is written.
    const bool lHasLine =
        aService.line() != nullptr &&
        awaits([&] { return isLogged(aService.line()); }, lNeedsLine ? kLongMs : 0);
    if (!aStarted) {
        return restart(aService, "said so");
    }
    if (lNeedsLine && !lHasLine) {
        return "failed without a word";
    }
    if (aService.works()) {
        return nullptr;
    }
    return restart(aService, lHasLine ? "said so by a line" : "lost without a word");
}

Failing failingOf(const Trial& aTrial) {
    return std::strcmp(aTrial.failing, "once") == 0 ? Failing::once : Failing::forGood;
}

/// Runs in the process of the trial, and ends it.
[[noreturn]] void run(const Trial& aTrial) {
    Services lServices = servicesOf(aTrial.scenario);
    std::vector<bool> lStarted;
    lStarted.reserve(lServices.size());

    makeShort(aTrial.number, failingOf(aTrial));
    for (const auto& lService : lServices) {
        lStarted.push_back(starts(*lService));
    }
    const long lStarting = makePlenty();

    std::string lVerdicts;
    for (std::size_t lAt = 0; lAt < lServices.size(); ++lAt) {
        if (const char* lVerdict = judge(*lServices[lAt], lStarted[lAt])) {
            lVerdicts += std::string(" ") + lServices[lAt]->name() + ": " + lVerdict + ";";
        }
    }

    makeShort(aTrial.number > lStarting ? aTrial.number - lStarting : 0, failingOf(aTrial));
    for (std::size_t lAt = lServices.size(); lAt-- > 0;) {
        lServices[lAt]->stop();
    }
    const long lStopping = makePlenty();
    std::fprintf(gAnswer, " %ld %ld %ld%s", lStarting, lStopping, refused(), lVerdicts.c_str());
    std::fflush(gAnswer);
    makeShort(aTrial.number > lStarting + lStopping ? aTrial.number - lStarting - lStopping : 0,
              failingOf(aTrial));
    std::exit(0);
}

[[noreturn]] void endInForeign(const char* aForeign) {
    makePlenty();
    std::fprintf(gAnswer, " in foreign code: %s;", aForeign);
    std::fflush(gAnswer);
    ::_exit(0);
}

void endBy(int aSignal, const char* aReason) {
    ::dup2(gErrors, 2);  // what is seen once, by chance, may not be seen again
    showCallers(aReason);
    ::signal(aSignal, SIG_DFL);
    ::raise(aSignal);
}

void onCrash(int aSignal) {
    if (const char* const lForeign = crashesIn()) {
        endInForeign(lForeign);
    }
    endBy(aSignal, "crashed\n");
}

/// Looks now and then: what never returns is known long before the limit.
void onLook(int aSignal) {
    if (const char* const lForeign = hangsIn()) {
        endInForeign(lForeign);
    }
    if (now() >= gLimit) {
        endBy(aSignal, "hangs\n");
    }
    ::alarm(kLookS);
}

void prepare() {
    gLimit = now() + kLimitMs;
    ::alarm(kLookS);
    const int lFiles = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(lFiles, 0);
    ::dup2(lFiles, 1);
    ::close(lFiles);
    prepareToLook();
    if (gShow) {
        showRefusals();
    }
    for (const int lSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        ::signal(lSignal, onCrash);
    }
    ::signal(SIGALRM, onLook);
    gErrors = ::fcntl(2, F_DUPFD_CLOEXEC, 3);
    ::unlink(ownPath("log"));  // with the lines of the trial before
    // Opened by name, so that it can be read while it is written.
    const int lLines = ::open((gFolder + "/lines").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ::dup2(lLines, 2);
    ::close(lLines);
}

void answer(const Trial& aTrial) {
    std::printf("%s %s %ld:", aTrial.scenario, aTrial.failing, aTrial.number);
    std::fflush(stdout);
    const pid_t lProcess = ::fork();
    if (lProcess == 0) {
        gAnswer = ::fdopen(::fcntl(1, F_DUPFD_CLOEXEC, 3), "w");
        prepare();
        run(aTrial);
    }
    int lStatus = 0;
    ::waitpid(lProcess, &lStatus, 0);
    if (WIFSIGNALED(lStatus)) {
        std::printf(" signal %d;", WTERMSIG(lStatus));
    } else if (WEXITSTATUS(lStatus) != 0) {
        std::printf(" status %d;", WEXITSTATUS(lStatus));
    }
    std::printf("\n");
    std::fflush(stdout);
}

void showLines() {
    std::FILE* const lLines = std::fopen((gFolder + "/lines").c_str(), "r");
    char lLine[1024];
    while (lLines != nullptr && std::fgets(lLine, sizeof lLine, lLines) != nullptr) {
        std::fputs(lLine, stderr);
    }
    if (lLines != nullptr) {
        std::fclose(lLines);
    }
}

int tryAll() {
    char lFolder[] = "/tmp/memory-XXXXXX";
    if (::mkdtemp(lFolder) == nullptr) {
        return 1;
    }
    gFolder = lFolder;
    Trial lTrial{};
    while (std::scanf("%31s %7s %ld", lTrial.scenario, lTrial.failing, &lTrial.number) == 3) {
        answer(lTrial);
        if (gShow) {
            showLines();
        }
    }
    ::unlink(serialPath());
    return std::system(("rm -r " + gFolder).c_str());
}

}  // namespace

unsigned short ownPort(int aWhich) {
    return gPorts[aWhich];
}

const char* ownPath(const char* aName) {
    static char lPath[256];
    std::snprintf(lPath, sizeof lPath, "%s/%s", gFolder.c_str(), aName);
    return lPath;
}

}  // namespace memory

int main(int aCount, char** aArguments) {
    if (aCount < 1 + memory::kPorts) {
        return 1;
    }
    for (int lPort = 0; lPort < memory::kPorts; ++lPort) {
        memory::gPorts[lPort] = static_cast<unsigned short>(std::atoi(aArguments[1 + lPort]));
    }
    memory::gShow = aCount > 1 + memory::kPorts;
    return memory::tryAll();
}
