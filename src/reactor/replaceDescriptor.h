// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Replaces descriptors that a forked child shares with its parent. Internal.
#ifndef OSX_REACTOR_REPLACEDESCRIPTOR_H
#define OSX_REACTOR_REPLACEDESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "base/Descriptor.h"

namespace osx {

/// Puts a fresh descriptor in the place of another, under the same number, which others may have
/// noted. Without a fresh one the other is closed, so that at least nothing is done to the
/// parent's.
inline void replaceDescriptor(Descriptor& aOld, Descriptor aFresh) {
    if (!aFresh) {
        aOld.reset();
    } else if (aFresh.get() == aOld.get()) {
        static_cast<void>(aFresh.release());  // somebody had closed the number
    } else {
        ::dup3(aFresh.get(), aOld.get(), O_CLOEXEC);
    }
}

/// The same for a descriptor that belongs to an ACE object.
inline void replaceDescriptor(int aOld, Descriptor aFresh) {
    Descriptor lOld(aOld);
    replaceDescriptor(lOld, std::move(aFresh));
    static_cast<void>(lOld.release());
}

}  // namespace osx

#endif
