// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The end of the process: one list of what is done, in its order.
///
/// It begins when `exit` has run the program's own handlers and destroyed its static objects,
/// before those of the library and ACE are destroyed. Other threads may be running, anywhere.
///
/// 1. `kLoops`: the threads that run the event loop park, so that no callback begins any more.
/// 2. `kServices`: the services send what they have left, and their threads park. This comes after
///    the loops, whose callbacks may have given them something to send.
/// 3. ACE. If all other threads are parked, it is torn down as in a program without the library,
///    with all that was registered with its object manager. If others run, no further line gets
///    into its logging, and its managers are kept. At the very end ACE frees its log lock all the
///    same. So unless the others are seen to have left its logging, the process ends here, with its
///    status, and nothing more is destroyed.
///
/// Nothing is joined: a thread that is waited for may itself wait for what the ending thread holds,
/// as ACE's log lock when a log back end calls `exit`.
///
/// Never destroyed are: the name table, the descriptor table, the redirect service, the reactor,
/// and the locks of all of them.
#ifndef OSX_PROCESS_ATEND_H
#define OSX_PROCESS_ATEND_H

namespace osx::process {

enum class EndStep { kLoops, kServices };

/// Registers a step; each has one function. A static object beside what the step is about.
class AtEnd {
public:
    AtEnd(EndStep aStep, void (*aFunction)()) noexcept;
};

/// Has the exit status noted when the process ends. To be called before the first thread is
/// started; any number of times.
void expectEnd() noexcept;

}  // namespace osx::process

#endif
