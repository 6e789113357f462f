// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the library asks of the kernel's event poll, refusals that a real one hardly ever makes,
/// and waits that come back when a test wants them to.
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

/// The next writes to an event counter, of any thread, are interrupted.
void interruptWakings(int aNumber);

/// @name Held waits
/// A thread that comes to wait is held before the kernel hears of it, until the test lets it go.
/// @{

/// What a wait comes back with.
enum class Report {
    kWhatThereIs,
    kOne,            ///< The first event.
    kThenLateOnes,   ///< What there is, and late events until the array is full.
    kAfterLateOnes,  ///< The same, with the late events first.
    kCancelled       ///< What there is stands in the array, but the thread is cancelled.
};

/// Holds the next waits of any threads, 16 at most. Nobody may be held any more: but for the child
/// of a fork, which does not have its parent's threads.
void holdWaits(int aNumber);

/// @return whether that many waits come to be held.
bool areHeld(int aNumber);

/// @param aWait which one, in the order in which they came, from 0 on.
/// @param aEvents waits for at least that many events of handlers and timers.
void letGo(int aWait, Report aReport = Report::kWhatThereIs, int aEvents = 0);

/// @return whether a wait that was let go has come back because another thread woke it, and not
///         for a timer.
bool wasWoken(int aWait);
/// @}

}  // namespace test

#endif
