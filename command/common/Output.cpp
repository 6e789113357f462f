// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/Output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "common/Stop.h"

namespace command {

namespace {
constexpr std::size_t kGathered = 65536;
constexpr int kGraceMs = 1000;
}  // namespace

bool Output::findTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool Output::findColours() {
    const char* const lRefused = std::getenv("NO_COLOR");
    return findTerminal() && (lRefused == nullptr || *lRefused == '\0');
}

void Output::write(std::string_view aText) {
    if (mIsLost) {
        return;
    }
    mText += aText;
    if (mText.size() >= kGathered) {
        flush();
    }
}

void Output::flush() {
    std::size_t lDone = 0;
    while (!mIsLost && lDone < mText.size()) {
        if (!waitForRoom()) {
            lose();
            break;
        }
        const std::size_t lSize = std::min<std::size_t>(PIPE_BUF, mText.size() - lDone);
        const ssize_t lWritten = ::write(STDOUT_FILENO, mText.data() + lDone, lSize);
        if (lWritten >= 0) {
            lDone += static_cast<std::size_t>(lWritten);
        } else if (errno != EINTR && errno != EAGAIN) {
            lose();
        }
    }
    mText.clear();
}

/// @return whether the reader takes something, or has gone, which a write then tells.
bool Output::waitForRoom() const {
    for (;;) {
        const bool lMustEnd = mStop != nullptr && mStop->isAsked();
        pollfd lPolls[2] = {{STDOUT_FILENO, POLLOUT, 0},
                            {mStop != nullptr ? mStop->descriptor() : -1, POLLIN, 0}};
        const int lReady = ::poll(lPolls, lMustEnd ? 1 : 2, lMustEnd ? kGraceMs : -1);
        if (lReady > 0 && lPolls[0].revents != 0) {
            return true;
        }
        if (lReady == 0) {
            return false;
        }
    }
}

void Output::lose() {
    mIsLost = true;
    if (mStop != nullptr) {
        mStop->ask();
    }
}

void Output::look() {
    pollfd lPoll{STDOUT_FILENO, 0, 0};
    if (!mIsLost && ::poll(&lPoll, 1, 0) == 1 && (lPoll.revents & POLLERR) != 0) {
        lose();
    }
}

}  // namespace command
