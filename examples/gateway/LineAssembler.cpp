// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "LineAssembler.h"

namespace gateway {

bool LineAssembler::add(unsigned char aByte) {
    if (mComplete) {
        clear();
    }
    if (aByte == '\n') {
        if (!mLine.empty() && mLine.back() == '\r') {
            mLine.pop_back();
        }
        mComplete = !mLine.empty();
        return mComplete;
    }
    if (mLine.size() < kLongestLine) {
        mLine.push_back(static_cast<char>(aByte));
    }
    return false;
}

void LineAssembler::clear() {
    mLine.clear();
    mComplete = false;
}

}  // namespace gateway
