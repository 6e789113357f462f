// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Tests that run the process program.
#ifndef OSX_TESTS_PROCESS_PROGRAMTEST_H
#define OSX_TESTS_PROCESS_PROGRAMTEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/longForm.h"

namespace test {

constexpr int kExitStatus = 7;

/// Runs commands of the process program, with its lines going where the options say and, with
/// network logging, to the network.
class ProgramTest : public testing::Test {
protected:
    /// For the programs started from now on.
    void useNetwork() {
        mRedirectPort = freePort();
        ::setenv("OSX_TEST_DEBUG_PORT", std::to_string(freePort()).c_str(), 1);
    }
    /// Adds to the options of a sanitizer, for the programs started from now on.
    static void addOption(const char* aVariable, const std::string& aOption) {
        const char* const lFormer = std::getenv(aVariable);
        const std::string lOptions = lFormer == nullptr ? "" : lFormer;
        ::setenv(aVariable, (lOptions + ":" + aOption).c_str(), 1);
    }
    unsigned short redirectPort() const { return mRedirectPort; }

    std::vector<std::string> command(const std::string& aName,
                                     std::vector<std::string> aOptions) const {
        aOptions.insert(aOptions.begin(), {Program::beside("process_program"), aName});
        if (mRedirectPort != 0) {
            aOptions.insert(aOptions.end(), {"-RedirectPort", std::to_string(mRedirectPort)});
        }
        return aOptions;
    }

    /// Runs a command to its end, which must be with a status. @return its output.
    std::string run(const std::string& aName, const std::vector<std::string>& aOptions,
                    int aStatus) const {
        Program lProgram(command(aName, aOptions));
        EXPECT_TRUE(lProgram.waitForOutput("ready\n")) << aName;
        lProgram.endInput();
        // A program may do its work in as many rounds.
        const std::chrono::seconds lLimit(60 + rounds(0));
        EXPECT_EQ(aStatus, lProgram.wait(lLimit)) << aName << ": " << lProgram.output();
        return lProgram.output();
    }

private:
    unsigned short mRedirectPort = 0;
};

}  // namespace test

#endif
