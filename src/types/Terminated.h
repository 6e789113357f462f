// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Texts with a terminator. Internal.
#ifndef OSX_TYPES_TERMINATED_H
#define OSX_TYPES_TERMINATED_H

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <string_view>

namespace osx {

/// A copy of a text with the terminator that `strtod` needs. The text of a usual number takes no
/// allocation.
template <class Character>
class Terminated {
public:
    explicit Terminated(std::basic_string_view<Character> aText) noexcept {
        if (aText.size() >= mNear.size()) {
            mFar.reset(new (std::nothrow) Character[aText.size() + 1]);
        }
        mText = aText.size() < mNear.size() ? mNear.data() : mFar.get();
        if (mText == nullptr) {
            errno = ENOMEM;
        } else {
            mText[aText.copy(mText, aText.size())] = 0;
        }
    }
    /// @return null when memory is short.
    const Character* get() const noexcept { return mText; }

private:
    static constexpr std::size_t kUsualLength = 64;

    std::array<Character, kUsualLength> mNear;
    std::unique_ptr<Character[]> mFar;
    Character* mText = nullptr;
};

}  // namespace osx

#endif
