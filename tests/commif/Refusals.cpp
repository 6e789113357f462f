// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/Refusals.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

constexpr uid_t kNobody = 65534;

int inChild(const std::function<bool()>& aCheck) {
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::_exit(aCheck() ? 0 : 1);
    }
    int lStatus = -1;
    return ::waitpid(lChild, &lStatus, 0) == lChild && WIFEXITED(lStatus) ? WEXITSTATUS(lStatus)
                                                                          : -1;
}

bool becomeOrdinaryUser() {
    return ::geteuid() != 0 || ::setuid(kNobody) == 0;
}

bool mountSmall(const char* aDirectory, unsigned long aFlags) {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("none", aDirectory, "tmpfs", aFlags, "size=64k") == 0;
}

}  // namespace

int asOrdinaryUser(const std::function<bool()>& aCheck) {
    return inChild([&] { return becomeOrdinaryUser() && aCheck(); });
}

int withReadOnlyDirectory(const std::string& aDirectory, const std::function<bool()>& aCheck) {
    return inChild([&] {
        if (!mountSmall(aDirectory.c_str(), MS_RDONLY)) {
            ::chmod(aDirectory.c_str(), 0555);
            if (!becomeOrdinaryUser()) {
                return false;
            }
        }
        return aCheck();
    });
}

int withSmallDisc(const std::string& aDirectory, const std::function<bool()>& aCheck) {
    return inChild([&] {
        if (mountSmall(aDirectory.c_str(), 0)) {
            return aCheck();
        }
        const FileSizeLimit lLimit(65536);
        return aCheck();
    });
}

FileSizeLimit::FileSizeLimit(rlim_t aBytes) : mFormerHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &mFormer);
    rlimit lLimit = mFormer;
    lLimit.rlim_cur = aBytes;
    ::setrlimit(RLIMIT_FSIZE, &lLimit);
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &mFormer);
    std::signal(SIGXFSZ, mFormerHandler);
}

}  // namespace test
