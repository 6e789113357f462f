// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Where the threads that run an event loop stay once the process ends.
#ifndef OSX_PROCESS_PARKING_H
#define OSX_PROCESS_PARKING_H

namespace osx::process {

/// Counts the calling thread as one in an event loop, for as long as the object lives. Loops may
/// nest.
class InLoop {
public:
    InLoop();
    ~InLoop();
    InLoop(const InLoop&) = delete;
    InLoop& operator=(const InLoop&) = delete;

    /// To be called by the loop where the thread holds nothing. Once the process ends it does not
    /// return, except on the thread that ends it.
    static void parkAtEnd();
};

/// Holds the calling thread for good, with all signals blocked.
/// @param aAnnounce is called when the thread counts as parked.
[[noreturn]] void park(void (*aAnnounce)() = nullptr);

/// Parks the calling thread if another one ends the process. To be called where it holds nothing of
/// the library's.
void parkIfOthersEndProcess();

/// Begins the end of the process, on the thread that ends it: the others park at their next call of
/// `parkAtEnd`.
void startParking();

/// @return the number of threads in an event loop that have not parked, but for the calling one.
int threadsToPark();

/// @return the number of threads that have parked.
int threadsParked();

/// In the child of a fork, which has none of the other threads.
void forgetParking();

}  // namespace osx::process

#endif
