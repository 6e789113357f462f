// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "client/Splitter.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using command::Kind;

struct Reported {
    Kind kind;
    std::string text;
    std::uint64_t count;
    bool operator==(const Reported& aOther) const {
        return kind == aOther.kind && text == aOther.text && count == aOther.count;
    }
};

std::ostream& operator<<(std::ostream& aStream, const Reported& aReported) {
    return aStream << static_cast<int>(aReported.kind) << " [" << aReported.text << "] "
                   << aReported.count;
}

class SplitterTest : public testing::Test {
protected:
    const command::Splitter::Report mReport = [this](Kind aKind, std::string_view aText,
                                                     std::uint64_t aCount) {
        mReported.push_back({aKind, std::string(aText), aCount});
    };
    std::vector<Reported> mReported;
};

using Reports = std::vector<Reported>;

std::string blockOf(const std::string& aText) {
    return std::string{static_cast<char>(aText.size()), 0, 0, 0} + aText;
}

}  // namespace

TEST_F(SplitterTest, CutsLinesWhereverTheBytesAreCut) {
    for (std::size_t lPiece = 1; lPiece < 14; ++lPiece) {
        const std::string lBytes = "one\r\n\ntwo\nrest";
        mReported.clear();
        command::LineSplitter lLines(100);
        for (std::size_t lAt = 0; lAt < lBytes.size(); lAt += lPiece) {
            EXPECT_TRUE(lLines.add(std::string_view(lBytes).substr(lAt, lPiece), mReport));
        }
        lLines.end(mReport);
        EXPECT_EQ((Reports{{Kind::kLine, "one", 0},
                           {Kind::kLine, "", 0},
                           {Kind::kLine, "two", 0},
                           {Kind::kLine, "rest", 0}}),
                  mReported);
    }
}

TEST_F(SplitterTest, ReportsTheBeginningOfALongLineAndHowMuchItLeftOut) {
    command::LineSplitter lLines(4);
    lLines.add("abcd", mReport);
    EXPECT_EQ(Reports{}, mReported) << "it may end there";
    lLines.add("efg", mReport);
    EXPECT_EQ((Reports{{Kind::kLine, "abcd", 0}}), mReported) << "at once, it may never end";
    lLines.add("hi\nx\n", mReport);
    EXPECT_EQ((Reports{{Kind::kLine, "abcd", 0}, {Kind::kCut, "", 5}, {Kind::kLine, "x", 0}}),
              mReported);
}

TEST_F(SplitterTest, KnowsTheLineAboutLostLines) {
    command::LineSplitter lLines(200);
    lLines.add("RedirectService: 12 lines dropped, the clients were too slow\n", mReport);
    ASSERT_EQ(1U, mReported.size());
    EXPECT_EQ(Kind::kLinesLost, mReported[0].kind);
    EXPECT_EQ(12U, mReported[0].count);
    mReported.clear();
    lLines.add("RedirectService: x lines dropped, the clients were too slow\n", mReport);
    EXPECT_EQ(Kind::kLine, mReported[0].kind);
}

TEST_F(SplitterTest, CutsBlocksWhereverTheBytesAreCut) {
    const std::string lBytes = blockOf("one") + blockOf("") + blockOf("two") + blockOf("rest");
    for (std::size_t lPiece = 1; lPiece < lBytes.size(); ++lPiece) {
        mReported.clear();
        command::BlockSplitter lBlocks(100);
        for (std::size_t lAt = 0; lAt < lBytes.size() - 1; lAt += lPiece) {
            const std::size_t lSize = std::min(lPiece, lBytes.size() - 1 - lAt);
            EXPECT_TRUE(lBlocks.add(std::string_view(lBytes).substr(lAt, lSize), mReport));
        }
        lBlocks.end(mReport);
        EXPECT_EQ((Reports{{Kind::kBlock, "one", 0},
                           {Kind::kBlock, "", 0},
                           {Kind::kBlock, "two", 0},
                           {Kind::kCut, "", 7}}),
                  mReported);
    }
}

TEST_F(SplitterTest, EndsTheUseOfAConnectionWithTooLongABlock) {
    command::BlockSplitter lBlocks(3);
    EXPECT_TRUE(lBlocks.add(blockOf("abc"), mReport));
    EXPECT_FALSE(lBlocks.add("\xff\xff\xff\xff", mReport));
    EXPECT_EQ((Reports{{Kind::kBlock, "abc", 0}, {Kind::kOversize, "", 0xFFFFFFFF}}), mReported);
    EXPECT_TRUE(lBlocks.add(blockOf("x"), mReport)) << "of another connection";
    EXPECT_EQ(Kind::kBlock, mReported.back().kind);
}
