#include "base/standardDescriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/NoCancellation.h"
#include "base/closeKeepingErrno.h"

namespace osx {

namespace {

constexpr int kFirstOther = STDERR_FILENO + 1;

bool isOpen(int aDescriptor) {
    return ::fcntl(aDescriptor, F_GETFD) != -1;
}

bool isAnyStandardFree() {
    return !isOpen(STDIN_FILENO) || !isOpen(STDOUT_FILENO) || !isOpen(STDERR_FILENO);
}

}  // namespace

StandardDescriptorsTaken::StandardDescriptorsTaken() noexcept {
    const NoCancellation lGuard;
    const int lErrno = errno;
    for (Placeholder& lPlaceholder : mPlaceholders) {
        if (isAnyStandardFree()) {
            lPlaceholder.take();
        }
    }
    errno = lErrno;
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    const int lErrno = errno;
    for (Placeholder& lPlaceholder : mPlaceholders) {
        lPlaceholder.release();
    }
    errno = lErrno;
}

/// An unconnected socket refuses, without a signal, whoever reads from it or writes to it. Another
/// thread may have taken the number meanwhile.
void StandardDescriptorsTaken::Placeholder::take() noexcept {
    const int lNumber = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct stat lStatus{};
    if (lNumber == -1) {
        return;
    }
    if (lNumber >= kFirstOther || ::fstat(lNumber, &lStatus) == -1) {
        ::close(lNumber);
        return;
    }
    mNumber = lNumber;
    mDevice = lStatus.st_dev;
    mInode = lStatus.st_ino;
}

/// The application may have put a file of its own on the number, which is not ours to close.
void StandardDescriptorsTaken::Placeholder::release() noexcept {
    struct stat lStatus{};
    if (mNumber != -1 && ::fstat(mNumber, &lStatus) == 0 && lStatus.st_dev == mDevice &&
        lStatus.st_ino == mInode) {
        ::close(mNumber);
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
