// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program that would end the process throws instead, so that the fuzzer goes on.
#ifndef OSX_TESTS_FUZZ_ENDED_H
#define OSX_TESTS_FUZZ_ENDED_H

/// Thrown in the place of the process's end.
struct Ended {
    int status;
};

/// Within this, `exit` throws. The linker leads all calls here (`--wrap`), the fuzzer's own too.
class ThrowingExit {
public:
    ThrowingExit() { mIsInForce = true; }
    ~ThrowingExit() { mIsInForce = false; }
    ThrowingExit(const ThrowingExit&) = delete;
    ThrowingExit& operator=(const ThrowingExit&) = delete;

    static bool isInForce() { return mIsInForce; }

private:
    static inline bool mIsInForce = false;
};

extern "C" [[noreturn]] void __real_exit(int aStatus);
extern "C" [[noreturn]] void __wrap_exit(int aStatus);
extern "C" [[noreturn]] void __wrap_exit(int aStatus) {
    if (!ThrowingExit::isInForce()) {
        __real_exit(aStatus);
    }
    throw Ended{aStatus};
}

/// Asked by LeakSanitizer: the callers of `exit`, which never returns, release nothing on the way.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return 1;
}

#endif
