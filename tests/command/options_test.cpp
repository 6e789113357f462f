// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "run.h"
#include "support/files.h"

namespace {

using testing::HasSubstr;

const std::vector<std::string> kCommands{"watch",  "console", "play",  "level",
                                         "frames", "sysinfo", "ports", "explain"};

std::set<std::string> optionsOf(const std::string& aCommand) {
    const std::string lHelp = test::run({aCommand, "--help"}).output;
    std::set<std::string> lOptions;
    for (std::size_t lAt = 0; (lAt = lHelp.find("--", lAt)) != std::string::npos;) {
        const std::size_t lEnd = lHelp.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", lAt);
        lOptions.insert(lHelp.substr(lAt, lEnd - lAt));
        lAt = lEnd;
    }
    return lOptions;
}

/// What bash offers for the last of some words.
std::set<std::string> completed(const std::vector<std::string>& aWords) {
    std::string lWords = "osx";
    for (const std::string& lWord : aWords) {
        lWords += " '" + lWord + "'";
    }
    test::Program lShell({"/bin/bash", "-c",
                          ". '" SOURCE_FOLDER "/command/completion/osx'; COMP_WORDS=(" + lWords +
                              "); COMP_CWORD=" + std::to_string(aWords.size()) +
                              "; _osx; printf '%s\\n' \"${COMPREPLY[@]}\""});
    EXPECT_EQ(0, lShell.wait());
    std::istringstream lLines(lShell.output());
    std::set<std::string> lOffered;
    for (std::string lLine; std::getline(lLines, lLine);) {
        lOffered.insert(lLine);
    }
    return lOffered;
}

std::string withoutBackslashes(std::string aText) {
    aText.erase(std::remove(aText.begin(), aText.end(), '\\'), aText.end());
    return aText;
}

}  // namespace

TEST(Options, AreAllCompleted) {
    std::set<std::string> lCommands(kCommands.begin(), kCommands.end());
    lCommands.insert({"--help", "--version"});
    EXPECT_EQ(lCommands, completed({""}));
    for (const std::string& lCommand : kCommands) {
        EXPECT_EQ(optionsOf(lCommand), completed({lCommand, "--"})) << lCommand;
    }
    EXPECT_EQ(std::set<std::string>{"--record-size"}, completed({"watch", "--record-s"}));
}

TEST(Options, AreAllInTheHelpAndTheManPage) {
    const std::string lHelp = test::run({"--help"}).output;
    const std::string lMan =
        withoutBackslashes(test::contentsOf(SOURCE_FOLDER "/command/man/osx.1"));
    const std::string lPage = test::contentsOf(SOURCE_FOLDER "/docs/command.md");
    for (const std::string& lCommand : kCommands) {
        EXPECT_THAT(lHelp, HasSubstr("\n  " + lCommand));
        EXPECT_THAT(lMan, HasSubstr(".SS " + lCommand + "\n"));
        EXPECT_THAT(lPage, HasSubstr("| `osx " + lCommand));
        for (const std::string& lOption : optionsOf(lCommand)) {
            EXPECT_THAT(lMan, HasSubstr(" " + lOption)) << lCommand;
        }
    }
}

TEST(Options, IncludeTheVersion) {
    const test::Result lResult = test::run({"--version"});
    EXPECT_EQ(0, lResult.status);
    EXPECT_THAT(lResult.output, testing::MatchesRegex("osx [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}
