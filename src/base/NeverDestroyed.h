// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// An object for the whole life of the process: it is not destroyed at exit, when other threads may
/// still use it.
#ifndef OSX_BASE_NEVERDESTROYED_H
#define OSX_BASE_NEVERDESTROYED_H

#include <new>

namespace osx {

template <class T>
class NeverDestroyed {
public:
    NeverDestroyed() : mObject(new(mStorage) T) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    T* get() const { return mObject; }

private:
    alignas(T) unsigned char mStorage[sizeof(T)];
    T* mObject;
};

}  // namespace osx

#endif
