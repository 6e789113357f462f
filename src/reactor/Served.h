// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

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
/// ordinary ACE handler.
class OSX_EXPORT Served : public ACE_Event_Handler {
public:
    enum Outcome {
        kIdle,  ///< There is nothing more to do until the descriptor has something new.
        kBusy,  ///< There may be more to do.
    };

    ~Served() override;

    /// Does a portion of what there is to do; never called on two threads at once. A handler that
    /// has come to its end leaves the set, and may return either outcome.
    /// @param aToTheEnd the other side has ended, or has sent urgent data: a read that comes short
    ///        may leave something, which is not reported.
    virtual Outcome serve(bool aToTheEnd) = 0;

    /// @return whether others may have read the descriptor: it has to be ready still when `serve`
    ///         is called.
    virtual bool wantsFreshLook() const = 0;

protected:
    Served();

    /// Leaves the set, if it is in one. @return whether this call took it out.
    bool leaveSet();

    /// @return whether the handler is, or was, in a set of the library's, and not in ACE's.
    bool isOfSet() const { return mGeneration != 0; }

    /// Has `serve` called soon, whatever the descriptor has.
    void askToBeServed();

    /// @return whether the descriptor was closed by somebody else, and another handler has its
    ///         number now.
    bool hasLostDescriptor() const;

private:
    friend class ServedSet;

    /// What is to be done with a handler that was taken out of the set, by the thread that serves
    /// it if there is one.
    enum Left { kNothing, kToClose, kToCloseWithoutDescriptor };

    /// The set that has the handler; null for none. Written with the set's lock, read by a thread
    /// that wants the handler to leave.
    std::atomic<ServedSet*> mSet{nullptr};
    /// The descriptor, and the generation under which the set knows it. Written before the set has
    /// the handler; 0 when it never had it.
    ACE_HANDLE mHandle = ACE_INVALID_HANDLE;
    std::uint32_t mGeneration = 0;
    /// A `Left`. Written with the set's lock, read by the thread that serves.
    std::atomic<int> mLeft{kNothing};
};

}  // namespace osx

#endif
