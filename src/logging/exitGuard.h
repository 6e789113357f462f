/// @file
/// The end of the process, which other threads may not have noticed.
#ifndef OSX_LOGGING_EXITGUARD_H
#define OSX_LOGGING_EXITGUARD_H

namespace osx {

/// To be called when the library's objects are destroyed at exit: keeps ACE's own traces of its
/// shutdown off the user's screen and, if other threads are running, keeps ACE usable for them.
void guardExit() noexcept;

}  // namespace osx

#endif
