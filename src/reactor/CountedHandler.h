// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The common base of what the library registers with a reactor.
#ifndef OSX_REACTOR_COUNTEDHANDLER_H
#define OSX_REACTOR_COUNTEDHANDLER_H

#include <atomic>

#include "base/osxExport.h"
#include "reactor/Served.h"

namespace osx {

/// An event handler that lives as long as somebody holds a reference: its maker, the reactor while
/// it is registered, and a thread that is dispatching it. So it may be taken out of the reactor on
/// any thread while another one is calling it.
class OSX_EXPORT CountedHandler : public Served {
public:
    ~CountedHandler() override;

    /// Adds a reference.
    /// @return the number of references now.
    Reference_Count add_reference() override;

    /// Gives a reference up. The last one destroys the handler, which must come from `new`.
    /// @return the number of references left.
    Reference_Count remove_reference() override;

protected:
    /// The new handler has one reference, its maker's.
    CountedHandler();

private:
    /// Counted here and not by the base so that the order between the last use on one thread and
    /// the destruction on another is visible to tools that analyse it. Any thread writes it.
    std::atomic<Reference_Count> mReferences{1};
};

}  // namespace osx

#endif
