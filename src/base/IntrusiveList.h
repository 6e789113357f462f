// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A list whose elements carry the link themselves: it needs no memory, and no destructor has to
/// run. A part of the classes that stand in such lists, and not for applications.
#ifndef OSX_BASE_INTRUSIVELIST_H
#define OSX_BASE_INTRUSIVELIST_H

#include <utility>

namespace osx {

template <class T>
class IntrusiveList;

/// A base of what can stand in a list, in one at a time: `class Port : public Listed<Port>`.
template <class T>
class Listed {
protected:
    constexpr Listed() noexcept = default;
    ~Listed() = default;
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;

private:
    friend class IntrusiveList<T>;

    T* mNext = nullptr;
};

/// The elements, the latest first. It owns none of them.
template <class T>
class IntrusiveList {
public:
    class Iterator {
    public:
        explicit Iterator(T* aElement) noexcept : mElement(aElement) {}
        T& operator*() const noexcept { return *mElement; }
        Iterator& operator++() noexcept {
            mElement = next(*mElement);
            return *this;
        }
        bool operator!=(const Iterator& aOther) const noexcept {
            return mElement != aOther.mElement;
        }

    private:
        T* mElement;
    };

    constexpr IntrusiveList() noexcept = default;
    IntrusiveList(const IntrusiveList&) = delete;
    IntrusiveList& operator=(const IntrusiveList&) = delete;

    Iterator begin() const noexcept { return Iterator(mFirst); }
    Iterator end() const noexcept { return Iterator(nullptr); }

    void add(T& aElement) noexcept { next(aElement) = std::exchange(mFirst, &aElement); }

    /// @param aElement in this list; it is looked for from the front.
    void remove(T& aElement) noexcept {
        T** lLink = &mFirst;
        while (*lLink != &aElement) {
            lLink = &next(**lLink);
        }
        *lLink = next(aElement);
    }

    /// @return the latest element, taken out; null if there is none.
    T* takeLatest() noexcept {
        T* const lLatest = mFirst;
        if (lLatest != nullptr) {
            mFirst = next(*lLatest);
        }
        return lLatest;
    }

    /// Leaves the elements to themselves.
    void forgetAll() noexcept { mFirst = nullptr; }

private:
    static T*& next(T& aElement) noexcept { return static_cast<Listed<T>&>(aElement).mNext; }

    T* mFirst = nullptr;
};

}  // namespace osx

#endif
