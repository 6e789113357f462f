// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A handler of the application's own.
#ifndef OSX_TESTS_REACTOR_PIPEHANDLER_H
#define OSX_TESTS_REACTOR_PIPEHANDLER_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "ace/Event_Handler.h"
#include "reactor/EchoPort.h"

namespace test {

/// For a pipe. Counts what it reads, and its notifications.
class PipeHandler : public ACE_Event_Handler {
public:
    PipeHandler() { EXPECT_EQ(0, ::pipe2(mPipe.data(), O_CLOEXEC | O_NONBLOCK)); }
    ~PipeHandler() override {
        ::close(mPipe[0]);
        ::close(mPipe[1]);
    }
    PipeHandler(const PipeHandler&) = delete;
    PipeHandler& operator=(const PipeHandler&) = delete;

    ACE_HANDLE get_handle() const override { return mPipe[0]; }
    int handle_input(ACE_HANDLE) override {
        char lByte = 0;
        EXPECT_EQ(1, ::read(mPipe[0], &lByte, 1));
        mCalls.add();
        return 0;
    }
    int handle_exception(ACE_HANDLE) override {
        mCalls.add();
        return 0;
    }
    void give() const { EXPECT_EQ(1, ::write(mPipe[1], "x", 1)); }
    Counter mCalls;

private:
    std::array<int, 2> mPipe{};
};

}  // namespace test

#endif
