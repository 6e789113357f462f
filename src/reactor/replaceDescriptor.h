/// @file
/// Getting rid of what a child shares with its parent. Internal.
#ifndef OSX_REACTOR_REPLACEDESCRIPTOR_H
#define OSX_REACTOR_REPLACEDESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

namespace osx {

/// Gives a descriptor's number to a fresh one. Without a fresh one the number is closed, so that
/// nothing is done to the parent's at least.
inline void replaceDescriptor(int aNumber, int aFresh) {
    if (aFresh == -1) {
        ::close(aNumber);
    } else if (aFresh != aNumber) {
        ::dup3(aFresh, aNumber, O_CLOEXEC);
        ::close(aFresh);
    }
}

}  // namespace osx

#endif
