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

// The C library's own type of a resource is an enumeration in C++ with its extensions.
void getLimit(int aResource, rlimit& aLimit) {
    ::getrlimit(static_cast<__rlimit_resource_t>(aResource), &aLimit);
}
void setLimit(int aResource, const rlimit& aLimit) {
    ::setrlimit(static_cast<__rlimit_resource_t>(aResource), &aLimit);
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

Limit::Limit(int aResource, rlim_t aValue) : mResource(aResource) {
    getLimit(mResource, mFormer);
    rlimit lLimit = mFormer;
    lLimit.rlim_cur = aValue;
    setLimit(mResource, lLimit);
}

Limit::~Limit() {
    setLimit(mResource, mFormer);
}

FileSizeLimit::FileSizeLimit(rlim_t aBytes)
    : Limit(RLIMIT_FSIZE, aBytes), mFormerHandler(std::signal(SIGXFSZ, SIG_IGN)) {}

FileSizeLimit::~FileSizeLimit() {
    std::signal(SIGXFSZ, mFormerHandler);
}

}  // namespace test
