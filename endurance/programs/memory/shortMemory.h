// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Makes memory short for the whole process: for the library, ACE and the C library alike.
#ifndef OSX_ENDURANCE_SHORTMEMORY_H
#define OSX_ENDURANCE_SHORTMEMORY_H

namespace memory {

/// What happens from the chosen allocation on.
enum class Failing { once, forGood };

/// From now on requests for memory are counted, by every thread: those of `malloc` and `new` and
/// what is like them, and those of new threads, whose stack is memory, too.
/// @param aFirst the request that is refused, from 1; 0 for none.
void makeShort(long aFirst, Failing aFailing);

/// There is memory again. @return how many requests were counted.
long makePlenty();

/// @return how many requests have been refused.
long refused();

/// Each refusal is shown on standard error, with the functions that called.
void showRefusals();

/// To be called where the process crashes.
/// @return the function of ACE or of the C library that it is in, if it is one of those that do not
///         survive the lack of memory and that nobody can do without; else null.
const char* crashesIn();

/// To be called where the process may hang.
/// @return the function of the C library that it is in, if it is one of those that never return
///         once memory was short; else null.
const char* hangsIn();

/// Takes the memory that looking at callers needs.
void prepareToLook();

/// Writes the functions that called to standard error.
void showCallers(const char* aReason);

}  // namespace memory

#endif
