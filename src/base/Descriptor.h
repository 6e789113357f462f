// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A file descriptor that somebody owns.
#ifndef OSX_BASE_DESCRIPTOR_H
#define OSX_BASE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"

namespace osx {

/// Owns a descriptor, or none, and closes it. Closing keeps `errno`, and is no cancellation point.
class Descriptor {
public:
    static constexpr int kNone = -1;

    Descriptor() noexcept = default;
    /// @param aNumber is this object's from now on; -1 for none.
    explicit Descriptor(int aNumber) noexcept : mNumber(aNumber) {}
    Descriptor(Descriptor&& aOther) noexcept : mNumber(aOther.release()) {}
    Descriptor& operator=(Descriptor&& aOther) noexcept {
        reset(aOther.release());
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const noexcept { return mNumber; }
    explicit operator bool() const noexcept { return mNumber != kNone; }

    /// @return the descriptor, which is the caller's to close from now on; -1 if there is none.
    [[nodiscard]] int release() noexcept { return std::exchange(mNumber, kNone); }

    /// Closes the descriptor, and owns another one instead.
    void reset(int aNumber = kNone) noexcept {
        const int lFormer = std::exchange(mNumber, aNumber);
        if (lFormer != kNone) {
            const ErrnoKeeper lErrno;
            const NoCancellation lGuard;
            ::close(lFormer);
        }
    }

private:
    int mNumber = kNone;
};

}  // namespace osx

#endif
