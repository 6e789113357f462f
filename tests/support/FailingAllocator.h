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
    ~FailingAllocator();
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    /// @return how many allocations failed so far.
    int failures() const;
};

}  // namespace test

#endif
