// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What all tests of this program need.
#include <gtest/gtest.h>

#include "base/osxExport.h"
#include "osx/osx.h"

namespace {

/// Tests count the entries of the name table, and may run in one process.
class FreshNameTable : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { osxNameTableInit(); }
};

[[maybe_unused]] const bool gIsSetUp = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FreshNameTable);
    return true;
}();

}  // namespace

// The tests ask for more memory than there is, and unlock what is not locked, on purpose: under
// the sanitizers too the one yields null and the other is ignored.
extern "C" {
OSX_EXPORT const char* __asan_default_options();
OSX_EXPORT const char* __tsan_default_options();

const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

const char* __tsan_default_options() {
    return "allocator_may_return_null=1:report_mutex_bugs=0";
}
}
