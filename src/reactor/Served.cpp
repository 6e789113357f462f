// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Handlers and the set that has them. A handler may be asked to leave the set on any thread.
#include "reactor/Served.h"

#include "reactor/ServedSet.h"

namespace osx {

Served::Served() = default;

Served::~Served() = default;

bool Served::leaveSet() {
    ServedSet* const lSet = mSet;
    return lSet != nullptr && lSet->remove(*this);
}

void Served::askToBeServed() {
    if (ServedSet* const lSet = mSet) {
        lSet->rouse(*this);
    }
}

bool Served::hasLostDescriptor() const {
    return mLeft == kToCloseWithoutDescriptor;
}

}  // namespace osx
