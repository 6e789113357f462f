/// @file
/// No descriptor of the library is 0, 1 or 2: where the application has closed its standard input,
/// output or error, one that took such a number would be written to as if it were that, with
/// diagnostic lines that a peer or a file then gets.
#ifndef OSX_BASE_STANDARDDESCRIPTORS_H
#define OSX_BASE_STANDARDDESCRIPTORS_H

#include <array>

#include "base/NoCancellation.h"

namespace osx {

/// While one lives, 0 to 2 are taken, so that what is opened meanwhile gets another number. Put it
/// in front of whatever opens a descriptor. Keeps `errno`; afterwards all is as it was.
class StandardDescriptorsTaken {
public:
    StandardDescriptorsTaken() noexcept;
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
    StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;

private:
    void takeLowest() noexcept;

    std::array<bool, 3> mIsMine{};
};

/// The rest of the rule, where another thread's guard has just freed such a number, or none could
/// be had to take it: moves a new descriptor, close-on-exec.
/// @return the descriptor; -1 with `errno` if it was -1 or could not be moved, being closed then.
int aboveStandard(int aDescriptor) noexcept;

/// Makes a descriptor that is none of 0 to 2. @param aMake makes it, or returns -1 with `errno`; a
/// cancellation waits for it.
template <class Make>
int makeDescriptor(Make aMake) noexcept {
    const NoCancellation lGuard;
    const StandardDescriptorsTaken lTaken;
    return aboveStandard(aMake());
}

}  // namespace osx

#endif
