// The tests ask for more memory than there is, and unlock what is not locked, on purpose: under
// the sanitizers too the one yields null and the other is ignored.
#include "base/osxExport.h"

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
