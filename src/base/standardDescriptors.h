// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// No descriptor that the library keeps is 0, 1 or 2, not even if the application has closed its
/// standard input, output or error. Otherwise a socket or file could get number 2 and receive what
/// is written to standard error. What is opened is moved at once.
#ifndef OSX_BASE_STANDARDDESCRIPTORS_H
#define OSX_BASE_STANDARDDESCRIPTORS_H

#include <array>

#include "base/Descriptor.h"
#include "base/NoCancellation.h"

namespace osx {

/// Moves a new descriptor that is one of 0 to 2 to another number, close-on-exec. No cancellation
/// point.
/// @return the descriptor; -1 with `errno` if it was -1 or could not be moved; it is then closed.
[[nodiscard]] int aboveStandard(int aDescriptor) noexcept;

/// Makes a descriptor that is none of 0 to 2.
/// @param aMake makes it, or returns -1 with `errno`; it may be a cancellation point.
/// @return the descriptor; none, with `errno`, if it could not be made.
template <class Make>
Descriptor makeDescriptor(Make aMake) {
    return Descriptor(aboveStandard(aMake()));
}

/// For what opens and keeps a descriptor that cannot be moved. While one lives, 0 to 2 are taken.
/// Other threads notice this, and so does a child that one of them forks: put it around as little
/// as possible, never around something that waits. Keeps `errno`; no cancellation while it lives.
class StandardDescriptorsTaken {
public:
    StandardDescriptorsTaken() noexcept;
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
    StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;

private:
    /// A socket of its own, which is like no other open file.
    class Placeholder {
    public:
        void take() noexcept;
        void release() noexcept;

    private:
        int mNumber = -1;
        unsigned long long mDevice = 0;
        unsigned long long mInode = 0;
    };

    const NoCancellation mNoCancellation;
    std::array<Placeholder, 3> mPlaceholders;
};

}  // namespace osx

#endif
