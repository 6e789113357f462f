// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/SerialLine.h"

#include "support/waitUntil.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>

namespace {

std::mutex gMutex;
std::map<std::string, std::string, std::less<>> gRedirections;

/// Allocates nothing: the test may be about an allocation that fails.
const char* redirected(const char* aPath) {
    const std::lock_guard<std::mutex> lLock(gMutex);
    const auto lFound = gRedirections.find(std::string_view(aPath));
    return lFound == gRedirections.end() ? aPath : lFound->second.c_str();
}

/// Two processes never get the same number at a time, as long as none makes more than 64 lines.
unsigned int nextNumber() {
    static std::atomic<unsigned int> lCount{0};
    return 1000 + static_cast<unsigned int>(::getpid()) * 64 + lCount++ % 64;
}

test::Descriptor openFarEnd() {
    test::Descriptor lFarEnd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_GE(lFarEnd.get(), 0);
    EXPECT_EQ(0, ::grantpt(lFarEnd.get()));
    EXPECT_EQ(0, ::unlockpt(lFarEnd.get()));
    return lFarEnd;
}

std::string terminalOf(int aFarEnd) {
    std::array<char, 64> lName{};
    EXPECT_EQ(0, ::ptsname_r(aFarEnd, lName.data(), lName.size()));
    return lName.data();
}

}  // namespace

// In the place of libc's, also for the libraries. The names are spelled out because with large file
// offsets <fcntl.h> turns one into the other.
extern "C" __attribute__((visibility("default"))) int testOpen(const char* aPath, int aFlags,
                                                               ...) __asm__("open");
extern "C" __attribute__((visibility("default"))) int testOpen64(const char* aPath, int aFlags,
                                                                 ...) __asm__("open64");

extern "C" int testOpen(const char* aPath, int aFlags, ...) {
    va_list lArguments;
    va_start(lArguments, aFlags);
    const unsigned int lMode = va_arg(lArguments, unsigned int);
    va_end(lArguments);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, redirected(aPath), aFlags, lMode));
}

extern "C" int testOpen64(const char* aPath, int aFlags, ...) {
    va_list lArguments;
    va_start(lArguments, aFlags);
    const unsigned int lMode = va_arg(lArguments, unsigned int);
    va_end(lArguments);
    return static_cast<int>(
        ::syscall(SYS_openat, AT_FDCWD, redirected(aPath), aFlags | O_LARGEFILE, lMode));
}

namespace test {

SerialLine::SerialLine()
    : mFarEnd(openFarEnd()),
      mTerminal(terminalOf(mFarEnd.get())),
      mNumber(nextNumber()),
      mLinked(::symlink(mTerminal.c_str(), path().c_str()) == 0) {
    if (!mLinked) {
        const std::lock_guard<std::mutex> lLock(gMutex);
        gRedirections[path()] = mTerminal;
    }
}

SerialLine::~SerialLine() {
    if (mLinked) {
        ::unlink(path().c_str());
    } else {
        const std::lock_guard<std::mutex> lLock(gMutex);
        gRedirections.erase(path());
    }
}

void SerialLine::send(const std::string& aData) const {
    EXPECT_EQ(static_cast<ssize_t>(aData.size()),
              ::write(mFarEnd.get(), aData.data(), aData.size()));
}

std::string SerialLine::receive(std::size_t aLength) const {
    std::string lData;
    while (lData.size() < aLength) {
        std::array<char, 4096> lBuffer{};
        if (!test::waitForInput(mFarEnd.get())) {
            break;
        }
        const ssize_t lCount =
            ::read(mFarEnd.get(), lBuffer.data(), std::min(lBuffer.size(), aLength - lData.size()));
        if (lCount <= 0) {
            break;
        }
        lData.append(lBuffer.data(), static_cast<std::size_t>(lCount));
    }
    return lData;
}

bool SerialLine::isOpen() const {
    pollfd lPoll{mFarEnd.get(), POLLIN, 0};
    return ::poll(&lPoll, 1, 0) == 0 || (lPoll.revents & POLLHUP) == 0;
}

void awaitInput(int aNearEnd, int aLength) {
    int lThere = 0;
    EXPECT_TRUE(
        waitUntil([&] { return ::ioctl(aNearEnd, FIONREAD, &lThere) == 0 && lThere >= aLength; }));
}

int openDescriptors() {
    const std::filesystem::directory_iterator lDescriptors("/proc/self/fd");
    return static_cast<int>(std::distance(begin(lDescriptors), end(lDescriptors)));
}

}  // namespace test
