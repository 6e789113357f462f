// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the library asks of the kernel's event poll, and refusals that a real one hardly ever
/// makes.
#ifndef OSX_TESTS_REACTOR_POLLMODEL_H
#define OSX_TESTS_REACTOR_POLLMODEL_H

namespace test {

/// @return how many events the latest wait, of any thread, wanted at most.
int eventsWanted();

/// Has the thread that is told of an event next be cancelled when it comes to it.
void cancelWithTheNextEvent();

/// Has the kernel refuse to make polls, or make them again.
void refusePolls(bool aRefuse);

/// Has the kernel be short of memory when a descriptor is added the next times.
void refuseToAdd(int aDescriptor, int aTimes);

/// @return how many refusals are left.
int refusalsLeft();

/// The next writes of the calling thread are interrupted.
void interruptWrites(int aNumber);

}  // namespace test

#endif
