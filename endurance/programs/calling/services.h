// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Everything of the library that makes system calls while a device runs.
///
/// Each service goes round by itself and counts each round that went well. A round that failed is
/// begun anew, as an application does it: with the channel, socket or task opened again.
#ifndef ENDURANCE_CALLING_SERVICES_H
#define ENDURANCE_CALLING_SERVICES_H

#include "calling/Board.h"

namespace calling {

/// What the services are given.
struct Places {
    const char* folder;   ///< For files of their own.
    unsigned long echo;   ///< Port that answers each piece of data with itself.
    unsigned long read;   ///< The same, of a port that reads for itself.
    long broadcast;       ///< Port of the ticks.
    unsigned int serial;  ///< Number of a serial port whose far end answers the same way.
};

/// Begins all that the loop serves: timers, ports, broadcasts, an application's own handlers.
void beginServed(Board& aBoard, const Places& aPlaces);

/// Begins all that has a task of its own: queues, sockets, devices, files, tasks, figures, lines.
void beginTasks(Board& aBoard, const Places& aPlaces);

/// A task that goes round until the process ends, with a pause between.
void beginRounds(Board& aBoard, const char* aName, bool (*aRound)());

}  // namespace calling

#endif
