// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "Console.h"
#include "support/files.h"

namespace {

using test::Console;
using test::Json;
using test::TcpListener;
using test::TcpPeer;
using test::waitUntil;
using testing::ElementsAre;
using testing::HasSubstr;

/// A console, two devices, and a history that may be looked into while no console runs.
class ConsoleHistory : public testing::Test {
protected:
    void start(const std::vector<std::string>& aMore = {}) {
        std::vector<std::string> lWords{"--devices", mDevices, "--history", file(), "a", "b"};
        lWords.insert(lWords.end(), aMore.begin(), aMore.end());
        mConsole = std::make_unique<Console>(lWords);
        ASSERT_TRUE(mConsole->isReady());
        mA = mListenerA.accept();
        mB = mListenerB.accept();
        ASSERT_TRUE(mA.connected() && mB.connected());
        // What is said from here on stands behind the marks.
        ASSERT_TRUE(waitUntil([&] {
            const Json lState = mConsole->state();
            return lState["devices"][0]["state"] == "connected" &&
                   lState["devices"][1]["state"] == "connected";
        }));
    }

    /// Sends lines, and waits until the last one is there.
    void say(TcpPeer& aPeer, const std::vector<std::string>& aLines) {
        for (const std::string& lLine : aLines) {
            ASSERT_TRUE(aPeer.send(lLine + "\n"));
        }
        ASSERT_TRUE(mConsole->waitForLine(aLines.back())) << mConsole->program().output();
    }

    /// @return the lines and marks of a page, marks as "-mark".
    std::vector<std::string> page(const std::string& aQuery, bool* aHasMore = nullptr) {
        std::vector<std::string> lTexts;
        Json lPage = mConsole->json("/api/history?" + aQuery);
        if (aHasMore != nullptr) {
            *aHasMore = lPage["more"];
        }
        for (const Json& lEntry : lPage["entries"]) {
            lTexts.push_back(lEntry.contains("line") ? lEntry["line"].get<std::string>()
                                                     : "-" + lEntry["mark"].get<std::string>());
        }
        return lTexts;
    }

    std::uint64_t idOf(const std::string& aLine) {
        const Json lPage = mConsole->json("/api/history?limit=1000");
        for (const Json& lEntry : lPage["entries"]) {
            if (lEntry.value("line", "") == aLine) {
                return lEntry["id"];
            }
        }
        return 0;
    }

    void end() {
        EXPECT_TRUE(mConsole->endsCleanly()) << mConsole->program().output();
        mA.close();
        mB.close();
    }

    void run(const std::string& aSql) const {
        sqlite3* lDatabase = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file().c_str(), &lDatabase));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(lDatabase, aSql.c_str(), nullptr, nullptr, nullptr))
            << sqlite3_errmsg(lDatabase);
        sqlite3_close(lDatabase);
    }

    std::string file() const { return mFolder.path() + "/h.db"; }
    std::uintmax_t size() const {
        std::uintmax_t lSize = 0;
        for (const char* lPart : {"", "-wal", "-shm"}) {
            std::error_code lError;
            const std::uintmax_t lBytes = std::filesystem::file_size(file() + lPart, lError);
            lSize += lError ? 0 : lBytes;
        }
        return lSize;
    }

    const test::Folder mFolder;
    TcpListener mListenerA;
    TcpListener mListenerB;
    const std::string mDevices = mFolder.write(
        "d.yaml", "devices:\n  a: {host: 127.0.0.1, port: " + std::to_string(mListenerA.port()) +
                      "}\n  b: {host: 127.0.0.1, port: " + std::to_string(mListenerB.port()) +
                      "}\n");
    std::unique_ptr<Console> mConsole;
    TcpPeer mA;
    TcpPeer mB;
};

}  // namespace

TEST_F(ConsoleHistory, IsGivenByThePage) {
    start();
    say(mA, {"1", "2", "3", "4", "5"});
    bool lHasMore = false;
    EXPECT_THAT(page("limit=2", &lHasMore), ElementsAre("4", "5"));
    EXPECT_TRUE(lHasMore);
    EXPECT_THAT(page("limit=2&before=" + std::to_string(idOf("4")), &lHasMore),
                ElementsAre("2", "3"));
    EXPECT_TRUE(lHasMore);
    EXPECT_THAT(page("limit=2&after=" + std::to_string(idOf("3")), &lHasMore),
                ElementsAre("4", "5"));
    EXPECT_FALSE(lHasMore);
    EXPECT_THAT(page("after=" + std::to_string(idOf("5")), &lHasMore), ElementsAre());
    EXPECT_THAT(page("before=1", &lHasMore), ElementsAre());
    EXPECT_FALSE(lHasMore);
    EXPECT_THAT(page("after=9007199254740992"), ElementsAre());
    end();
}

TEST_F(ConsoleHistory, IsFilteredByDeviceWordAndExpression) {
    start();
    say(mA, {"an Error here", "all is well", "a warning"});
    say(mB, {"unable to go on", "error, too"});
    EXPECT_THAT(page("device=b&words=error,%20UNABLE"),
                ElementsAre("unable to go on", "error, too"));
    EXPECT_THAT(page("words=error&device=a&device=b"), ElementsAre("an Error here", "error, too"));
    EXPECT_THAT(page("grep=%5Ea.*(here%7Cwell)$"), ElementsAre("an Error here", "all is well"));
    EXPECT_THAT(page("grep=e&words=warning"), ElementsAre());
    EXPECT_THAT(page("device=nobody"), ElementsAre());
    bool lHasMore = true;
    EXPECT_THAT(page("words=error&limit=1", &lHasMore), ElementsAre("error, too"));
    EXPECT_TRUE(lHasMore);
    EXPECT_THAT(page("device=a&limit=1"), ElementsAre("a warning"));
    end();
}

TEST_F(ConsoleHistory, IsFoundByTimeAndKeptOverRestarts) {
    start();
    say(mA, {"old", "of the first run"});
    end();
    run("UPDATE entries SET at = at - 3600000 WHERE text = 'old' OR mark = 'connected'");
    start();
    say(mA, {"of the second run"});
    const auto lNow = mConsole->state()["now"].get<std::uint64_t>();
    const auto lTexts = page("at=" + std::to_string(lNow - 1800000));
    ASSERT_FALSE(lTexts.empty());
    EXPECT_EQ("of the first run", lTexts.front());
    EXPECT_EQ("of the second run", lTexts.back());
    EXPECT_THAT(page("at=" + std::to_string(lNow + 3600000)), ElementsAre());
    EXPECT_EQ("-connected", page("at=0").front());
    EXPECT_GT(idOf("of the second run"), idOf("of the first run"));
    end();
}

TEST_F(ConsoleHistory, IsBoundedByAge) {
    start();
    say(mA, {"old", "new"});
    end();
    run("UPDATE entries SET at = at - 120000 WHERE id <= (SELECT id FROM entries WHERE text = "
        "'old')");
    start({"--history-age", "1m"});
    say(mA, {"newer"});
    EXPECT_EQ(0U, idOf("old"));
    EXPECT_NE(0U, idOf("new"));
    EXPECT_EQ("new", page("at=0").front());
    end();
}

TEST_F(ConsoleHistory, IsBoundedBySize) {
    constexpr std::uintmax_t kMost = 16UL * 1024 * 1024;
    start({"--history-size", "16M"});
    constexpr int kRounds = 9;
    constexpr int kLines = 400;
    const std::string lPadding(4000, 'x');
    std::uintmax_t lLargest = 0;
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        for (int lLine = 0; lLine < kLines; ++lLine) {
            ASSERT_TRUE(mA.send(lPadding + "\n"));
        }
        say(mA, {"round " + std::to_string(lRound)});
        lLargest = std::max(lLargest, size());
    }
    EXPECT_GT(lLargest, kMost / 4);
    EXPECT_LT(lLargest, kMost);
    EXPECT_GT(mConsole->state()["oldest"], kLines);
    EXPECT_EQ(kRounds * (kLines + 1) + 2, mConsole->state()["newest"]);
    EXPECT_EQ("round 8", page("limit=1").front());
    end();
    EXPECT_LT(size(), kMost);
}

TEST_F(ConsoleHistory, SaysWhatAFullDiscDidNotTake) {
    start();
    say(mA, {"before"});
    const pid_t lProcess = mConsole->program().process();
    rlimit lFormer{};
    ASSERT_EQ(0, ::prlimit(lProcess, RLIMIT_FSIZE, nullptr, &lFormer));
    const rlimit lFull{1, lFormer.rlim_max};
    ASSERT_EQ(0, ::prlimit(lProcess, RLIMIT_FSIZE, &lFull, nullptr));
    ASSERT_TRUE(mA.send("lost\n"));
    ASSERT_TRUE(mConsole->program().waitForOutput("entries are left out until it takes them"));
    EXPECT_TRUE(mConsole->state()["newest"].is_number()) << "it goes on";
    ASSERT_TRUE(mA.send("lost, too\n"));
    ASSERT_TRUE(waitUntil([&] { return mConsole->state()["devices"][0]["lines"] == 3; }));
    ASSERT_EQ(0, ::prlimit(lProcess, RLIMIT_FSIZE, &lFormer, nullptr));
    ASSERT_TRUE(mA.send("after\n"));
    ASSERT_TRUE(mConsole->waitForLine("after")) << mConsole->program().output();
    ASSERT_TRUE(mConsole->program().waitForOutput("is written again; "));
    EXPECT_EQ(0U, idOf("lost"));
    const std::uint64_t lBefore = idOf("before");
    const Json lGap =
        mConsole->json("/api/history?after=" + std::to_string(lBefore) + "&limit=1")["entries"][0];
    EXPECT_EQ("record-gap", lGap["mark"]);
    EXPECT_GE(lGap["count"], 1);
    end();
}

TEST_F(ConsoleHistory, ThatIsDamagedIsKeptAsideAndBegunAnew) {
    mFolder.write("h.db", std::string(100000, 'x'));
    start();
    ASSERT_TRUE(mConsole->program().waitForOutput("h.db was damaged; what there was is in "));
    EXPECT_EQ(std::string(100000, 'x'), test::contentsOf(file() + ".damaged"));
    say(mA, {"a line"});
    EXPECT_NE(0U, idOf("a line"));
    EXPECT_EQ("-record-damaged", page("grep=damaged$").front());
    end();
}

TEST_F(ConsoleHistory, ThatIsDamagedInItsMiddleIsNoticed) {
    start();
    std::vector<std::string> lLines(3000, std::string(200, 'x'));
    lLines.emplace_back("the end");
    say(mA, lLines);
    end();
    {
        std::fstream lFile(file(), std::ios::in | std::ios::out | std::ios::binary);
        lFile.seekp(3 * 4096);
        const std::string lGarbage(static_cast<std::size_t>(size()) - 3 * std::size_t{4096},
                                   '\x5a');
        lFile << lGarbage;
    }
    start();
    ASSERT_TRUE(waitUntil([&] {
        mConsole->get("/api/history?limit=1000");
        return mConsole->program().waitForOutput("was damaged; what there was is in ");
    }));
    say(mA, {"a line"});
    EXPECT_NE(0U, idOf("a line"));
    end();
}

TEST_F(ConsoleHistory, IsOneProgramsAtATime) {
    start();
    const test::Result lSecond =
        test::run({"console", "--listen", "127.0.0.1:" + std::to_string(test::freePort()),
                   "--history", file(), "127.0.0.1:1"});
    EXPECT_EQ(1, lSecond.status);
    EXPECT_EQ("osx: " + file() + ": another program keeps its history there\n", lSecond.output);
    end();
}

TEST_F(ConsoleHistory, IsNoDatabaseOfAnotherProgram) {
    run("CREATE TABLE letters(id INTEGER PRIMARY KEY)");
    const test::Result lResult = test::run({"console", "--history", file(), "127.0.0.1:1"});
    EXPECT_EQ(2, lResult.status);
    EXPECT_EQ("osx: " + file() + ": is a database of another program\n", lResult.output);
    EXPECT_FALSE(std::filesystem::exists(file() + ".damaged"));
}

TEST_F(ConsoleHistory, IsForItsOwnerOnly) {
    start();
    say(mA, {"a line"});
    for (const char* lPart : {"", "-wal", "-shm", "-lock"}) {
        EXPECT_EQ(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                  std::filesystem::status(file() + lPart).permissions())
            << lPart;
    }
    end();
}
