#include "base/standardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "base/NoCancellation.h"
#include "base/closeKeepingErrno.h"

namespace osx {

namespace {

constexpr int kFirstOther = STDERR_FILENO + 1;

bool isOpen(int aDescriptor) {
    return ::fcntl(aDescriptor, F_GETFD) != -1;
}

}  // namespace

StandardDescriptorsTaken::StandardDescriptorsTaken() noexcept {
    const NoCancellation lGuard;
    const int lErrno = errno;
    for (int lNumber = 0; lNumber < kFirstOther; ++lNumber) {
        if (!isOpen(lNumber)) {
            takeLowest();
        }
    }
    errno = lErrno;
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    for (int lNumber = 0; lNumber < kFirstOther; ++lNumber) {
        if (mIsMine[static_cast<std::size_t>(lNumber)]) {
            closeKeepingErrno(lNumber);
        }
    }
}

/// Another thread may have taken the number meanwhile.
void StandardDescriptorsTaken::takeLowest() noexcept {
    const int lNumber = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (lNumber >= kFirstOther) {
        ::close(lNumber);
    } else if (lNumber != -1) {
        mIsMine[static_cast<std::size_t>(lNumber)] = true;
    }
}

int aboveStandard(int aDescriptor) noexcept {
    if (aDescriptor == -1 || aDescriptor >= kFirstOther) {
        return aDescriptor;
    }
    const int lMoved = ::fcntl(aDescriptor, F_DUPFD_CLOEXEC, kFirstOther);
    closeKeepingErrno(aDescriptor);
    return lMoved;
}

}  // namespace osx
