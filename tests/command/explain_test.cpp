// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "explain/explain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "commif/commif.h"
#include "explain/LineCatalogue.h"
#include "explain/StatusCodes.h"
#include "osx/osx.h"
#include "run.h"

namespace {

using command::KnownLine;
using command::StatusCode;
using testing::HasSubstr;

constexpr char kHeader[] =
    "constexpr int X_OK = 0;  ///< Fine.\n"
    "constexpr unsigned int X_ERR_BAD = 7;   ///< Bad.\n"
    "constexpr int X_SIZE = 9;  ///< No status.\n"
    "/// Does it.\n"
    "/// @retval X_ERR_BAD it was bad, or\n"
    "///         worse.\n"
    "/// @return nothing else.\n"
    "int doIt(int aX);\n"
    "int another();";

/// A line as a device would write it by a format.
std::string written(std::string aFormat) {
    const struct {
        const char* conversion;
        const char* text;
    } lValues[] = {{"%llu", "12"},     {"%lu", "12"},  {"%t", "4711"}, {"%d", "-5"},
                   {"%l", "77"},       {"%x", "fe01"}, {"%f", "0.5"},  {"%s", "a b"},
                   {"%N", "some.cpp"}, {"%T", "12:00"}};
    for (const auto& lValue : lValues) {
        for (std::size_t lAt = 0;
             (lAt = aFormat.find(lValue.conversion, lAt)) != std::string::npos;) {
            aFormat.replace(lAt, std::string(lValue.conversion).size(), lValue.text);
        }
    }
    EXPECT_EQ(std::string::npos, aFormat.find('%')) << aFormat;
    return aFormat;
}

}  // namespace

TEST(Explain, ReadsCodesFromAHeader) {
    const auto lCodes = command::statusCodesIn(kHeader, "x.h");
    ASSERT_EQ(2U, lCodes.size());
    EXPECT_EQ("X_OK", lCodes[0].name);
    EXPECT_EQ(7U, lCodes[1].number);
    EXPECT_EQ("Bad.", lCodes[1].meaning);
    ASSERT_EQ(1U, lCodes[1].givers.size());
    EXPECT_EQ("doIt", lCodes[1].givers[0].function);
    EXPECT_EQ("it was bad, or worse.", lCodes[1].givers[0].why);
}

TEST(Explain, KnowsTheLibrarysCodes) {
    const auto lCodes = command::allStatusCodes();
    const struct {
        const char* name;
        unsigned long number;
    } lSome[] = {{"OSX_OK", OSX_OK},
                 {"OSX_ERR_MUTEX_ACQUIRE", OSX_ERR_MUTEX_ACQUIRE},
                 {"COMMIF_ERR_NO_DESCRIPTOR", COMMIF_ERR_NO_DESCRIPTOR},
                 {"COMMIF_ERR_QUEUE_RECV", COMMIF_ERR_QUEUE_RECV}};
    for (const auto& lEach : lSome) {
        const auto lFound =
            std::find_if(lCodes.begin(), lCodes.end(),
                         [&](const StatusCode& aCode) { return aCode.name == lEach.name; });
        ASSERT_NE(lCodes.end(), lFound) << lEach.name;
        EXPECT_EQ(lEach.number, lFound->number);
        EXPECT_FALSE(lFound->meaning.empty());
        EXPECT_FALSE(lFound->givers.empty()) << lEach.name;
    }
    for (const StatusCode& lCode : lCodes) {
        EXPECT_FALSE(lCode.toDo.empty()) << lCode.name;
    }
}

TEST(Explain, FindsEachLineWithItsArgumentsFilledIn) {
    const auto lLines = command::allLines();
    EXPECT_GT(lLines.size(), 100U);
    for (const KnownLine& lLine : lLines) {
        EXPECT_FALSE(lLine.why.empty());
        EXPECT_FALSE(lLine.toDo.empty());
        for (const std::string& lBefore : {std::string(), std::string("2026-11-23 03:01 gps1 ")}) {
            const auto lFound = command::linesLike(lBefore + written(lLine.format) + " \n", lLines);
            EXPECT_TRUE(std::any_of(lFound.begin(), lFound.end(), [&](const KnownLine& aFound) {
                return aFound.format == lLine.format;
            })) << lLine.format;
        }
    }
    EXPECT_TRUE(command::linesLike("something else", lLines).empty());
    EXPECT_TRUE(command::linesLike(std::string(1000000, '['), lLines).empty());
}

TEST(Explain, TakesANumberANameOrALine) {
    EXPECT_THAT(test::run({"explain", "20011"}).output,
                HasSubstr("OSX_ERR_TIMEOUT = 20011 (osx/osx.h)\n"
                          "  A timed acquire obtained nothing.\n"
                          "  What to do: The caller holds nothing"));
    EXPECT_THAT(test::run({"explain", "COMMIF_ERR_SHORT_READ"}).output,
                HasSubstr("COMMIF_ERR_SHORT_READ = 10117 (commif/commif.h)\n"));
    EXPECT_THAT(test::run({"explain", "12"}).output, HasSubstr("Cannot allocate memory"));
    const test::Result lLine =
        test::run({"explain", "4711", "osxThreadWait:", "lThread", "==", "0"});
    EXPECT_EQ(0, lLine.status);
    EXPECT_THAT(lLine.output, HasSubstr("What to do: "));
    EXPECT_THAT(lLine.output, HasSubstr("Written always, for a failure, by osx/osxTask.cpp."));
}

TEST(Explain, SaysWhenItDoesNotKnow) {
    const test::Result lResult = test::run({"explain", "\x1b[2J nothing"});
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ(
        "osx: '\\x1b[2J nothing' is no status code and no line of the library; perhaps the "
        "application's\n",
        lResult.output);
}
