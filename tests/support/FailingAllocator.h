// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Makes the allocator fail, for tests of what happens when memory is short.
#ifndef OSX_TESTS_SUPPORT_FAILINGALLOCATOR_H
#define OSX_TESTS_SUPPORT_FAILINGALLOCATOR_H

namespace test {

/// While one lives, `new` fails on the thread that made it: the allocation after the first
/// `aAllowed` ones and, unless told otherwise, all that follow. `malloc` is not touched.
class FailingAllocator {
public:
    explicit FailingAllocator(int aAllowed = 0, bool aOnlyOnce = false);
    /// @param aFailures how many allocations fail, before there is memory again.
    FailingAllocator(int aAllowed, int aFailures);
    ~FailingAllocator();
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    /// @return how many allocations failed so far.
    int failures() const;
};

/// While one lives, `new` fails on all threads but the one that made it, for a number of times.
class FailingForOtherThreads {
public:
    /// @param aAllowed how many allocations succeed before, of all these threads together.
    /// @param aFailures how many fail then.
    FailingForOtherThreads(int aAllowed, int aFailures);
    ~FailingForOtherThreads();
    FailingForOtherThreads(const FailingForOtherThreads&) = delete;
    FailingForOtherThreads& operator=(const FailingForOtherThreads&) = delete;

    /// @return how many have failed so far.
    int failures() const;
};

}  // namespace test

#endif
