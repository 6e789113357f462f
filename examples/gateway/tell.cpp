// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "tell.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace gateway {

namespace {

/// A pipe says so when it has room for more than any line here.
bool takesALine(int aDescriptor) {
    pollfd lPoll{aDescriptor, POLLOUT, 0};
    return ::poll(&lPoll, 1, 0) == 1 && lPoll.revents == POLLOUT;
}

}  // namespace

void tell(const char* aFormat, ...) {
    std::array<char, 200> lLine{};
    va_list lArguments;
    va_start(lArguments, aFormat);
    const int lLength = std::vsnprintf(lLine.data(), lLine.size(), aFormat, lArguments);
    va_end(lArguments);
    if (lLength > 0 && takesALine(STDOUT_FILENO)) {
        const std::size_t lSize = std::min(static_cast<std::size_t>(lLength), lLine.size() - 1);
        [[maybe_unused]] const ssize_t lIgnored = ::write(STDOUT_FILENO, lLine.data(), lSize);
    }
}

}  // namespace gateway
