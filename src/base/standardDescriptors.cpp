// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Moves descriptors off the numbers 0 to 2, and holds these numbers for a while.
#include "base/standardDescriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Descriptor.h"
#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"

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
    const ErrnoKeeper lErrno;
    for (Placeholder& lPlaceholder : mPlaceholders) {
        if (isAnyStandardFree()) {
            lPlaceholder.take();
        }
    }
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    const ErrnoKeeper lErrno;
    for (Placeholder& lPlaceholder : mPlaceholders) {
        lPlaceholder.release();
    }
}

/// An unconnected socket refuses reads and writes, without a signal. Another thread may have taken
/// the number meanwhile.
void StandardDescriptorsTaken::Placeholder::take() noexcept {
    Descriptor lSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct stat lStatus{};
    if (!lSocket || lSocket.get() >= kFirstOther || ::fstat(lSocket.get(), &lStatus) == -1) {
        return;
    }
    mNumber = lSocket.release();
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
    const Descriptor lFormer(aDescriptor);
    return ::fcntl(lFormer.get(), F_DUPFD_CLOEXEC, kFirstOther);
}

}  // namespace osx
