/// @file
/// What the library's own reactor serves without ACE's limit on descriptors.
#ifndef OSX_REACTOR_SERVED_H
#define OSX_REACTOR_SERVED_H

#include <atomic>
#include <cstdint>

#include "ace/Event_Handler.h"
#include "base/osxExport.h"

namespace osx {

class ServedSet;

/// A handler whose descriptor the reactor keeps in a set of its own. On any other reactor it is an
/// ordinary handler of ACE's.
class OSX_EXPORT Served : public ACE_Event_Handler {
public:
    enum Outcome {
        kIdle,  ///< There is nothing more to do until the descriptor has something new.
        kBusy,  ///< There may be more to do.
    };

    ~Served() override;

    /// Does a portion of what there is to do; never called on two threads at once. A handler that
    /// has come to its end leaves the set, and may return either outcome.
    /// @param aToTheEnd the other side has ended: what is read next is not merely the latest.
    virtual Outcome serve(bool aToTheEnd) = 0;

    /// @return whether others may have read the descriptor: it has to be ready still when `serve`
    ///         is called.
    virtual bool wantsFreshLook() const = 0;

protected:
    Served();

    /// Leaves the set, if it is in one. @return whether it was, or is no longer because of another
    /// thread.
    bool leaveSet();

    /// @return whether it is a set that has the handler, or had it at last.
    bool isOfSet() const { return mGeneration != 0; }

    /// Has `serve` called soon, whatever the descriptor has.
    void askToBeServed();

    /// @return whether the descriptor has been given to somebody else, who has it now.
    bool hasLostDescriptor() const;

private:
    friend class ServedSet;

    /// What somebody who took the handler out of the set, while it was being served, left to the
    /// one who served it.
    enum Left { kNothing, kToClose, kToCloseWithoutDescriptor };

    std::atomic<ServedSet*> mSet{nullptr};
    ACE_HANDLE mHandle = ACE_INVALID_HANDLE;
    std::uint32_t mGeneration = 0;
    std::atomic<int> mLeft{kNothing};
};

}  // namespace osx

#endif
