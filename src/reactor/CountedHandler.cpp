// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Counting references to handlers, for ACE and for the library.
#include "reactor/CountedHandler.h"

namespace osx {

CountedHandler::CountedHandler() {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
}

CountedHandler::~CountedHandler() = default;

ACE_Event_Handler::Reference_Count CountedHandler::add_reference() {
    return mReferences.fetch_add(1, std::memory_order_relaxed) + 1;
}

ACE_Event_Handler::Reference_Count CountedHandler::remove_reference() {
    const Reference_Count lLeft = mReferences.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (lLeft == 0) {
        delete this;
    }
    return lLeft;
}

}  // namespace osx
