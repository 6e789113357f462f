// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "Console.h"
#include "Gateway.h"
#include "peak.h"

namespace {

using test::Console;
using test::Events;
using test::Json;
using test::TcpListener;
using test::TcpPeer;
using test::waitUntil;
using testing::HasSubstr;

constexpr char kReport[] = "77 gateway: load and memory [$PGWS,17.01,24683656,19190876*11]\n";

/// A console and a device.
class ConsoleDevices : public testing::Test {
protected:
    void start(const std::vector<std::string>& aMore = {}) {
        std::vector<std::string> lWords{"--history", mFolder.path() + "/h.db", mDevice->address()};
        lWords.insert(lWords.end(), aMore.begin(), aMore.end());
        mConsole = std::make_unique<Console>(lWords);
        ASSERT_TRUE(mConsole->isReady());
        mPeer = mDevice->accept();
        ASSERT_TRUE(mPeer.connected());
        // The mark that tells of it is no part of what the tests look at.
        ASSERT_TRUE(waitUntil([&] {
            const Json lState = mConsole->state();
            return lState.value("newest", 0) == 1 &&
                   lState["devices"][0].value("state", "") == "connected";
        }));
    }

    Json device() const { return mConsole->state()["devices"][0]; }

    const test::Folder mFolder;
    std::unique_ptr<TcpListener> mDevice = std::make_unique<TcpListener>();
    std::unique_ptr<Console> mConsole;
    TcpPeer mPeer;
};

}  // namespace

TEST_F(ConsoleDevices, AreShownWithTheirStateRateAndFigures) {
    start();
    ASSERT_TRUE(mPeer.send(std::string("first\n") + kReport +
                           "RedirectService: 7 lines dropped, the clients were too slow\n"));
    ASSERT_TRUE(waitUntil([&] { return device().value("lost", 0) == 7; }));
    const Json lState = mConsole->state();
    EXPECT_TRUE(lState["version"].is_string());
    EXPECT_EQ(7 * 24 * 3600, lState["limits"]["ageS"]);
    EXPECT_EQ(500 * 1024 * 1024, lState["limits"]["bytes"]);
    EXPECT_EQ(1, lState["oldest"]);
    EXPECT_EQ(4, lState["newest"]) << "a connection, two lines, a mark";
    const Json lDevice = lState["devices"][0];
    EXPECT_EQ(mDevice->address(), lDevice["name"]);
    EXPECT_EQ("127.0.0.1", lDevice["host"]);
    EXPECT_EQ(mDevice->port(), lDevice["port"]);
    EXPECT_EQ(12311, lDevice["levelPort"]);
    EXPECT_EQ("connected", lDevice["state"]);
    EXPECT_EQ(2, lDevice["lines"]);
    EXPECT_TRUE(lDevice["level"].is_null());
    EXPECT_DOUBLE_EQ(17.01, lDevice["figures"]["load"]);
    EXPECT_EQ(24683656, lDevice["figures"]["memoryTotal"]);
    EXPECT_EQ(19190876, lDevice["figures"]["memoryFree"]);
    EXPECT_THAT(lDevice["why"], HasSubstr("7 lines lost"));
    EXPECT_TRUE(waitUntil([&] { return device()["rate"] > 0; }));
    EXPECT_TRUE(mConsole->endsCleanly());
}

TEST_F(ConsoleDevices, AreFollowedLineByLine) {
    start();
    Events lEvents(*mConsole);
    EXPECT_EQ("connected", lEvents.next("devices")["devices"][0]["state"]);
    ASSERT_TRUE(mPeer.send("one\n"));
    const Json lLines = lEvents.next("lines");
    ASSERT_EQ(1U, lLines["entries"].size());
    EXPECT_EQ("one", lLines["entries"][0]["line"]);
    EXPECT_EQ(2, lLines["entries"][0]["id"]);
    EXPECT_EQ(mDevice->address(), lLines["entries"][0]["device"]);
    EXPECT_EQ(0, lLines["skipped"]);
    mPeer.close();
    const Json lMark = lEvents.next("lines")["entries"][0];
    EXPECT_EQ("disconnected", lMark["mark"]);
    EXPECT_EQ("closed by the device", lMark["text"]);
}

TEST_F(ConsoleDevices, AreFollowedFromWhereABrowserWas) {
    start();
    ASSERT_TRUE(mPeer.send("one\ntwo\nthree\n"));
    ASSERT_TRUE(mConsole->waitForLine("three"));
    Events lEvents(*mConsole, "Last-Event-ID: 2\r\n");
    const Json lLines = lEvents.next("lines");
    ASSERT_EQ(2U, lLines["entries"].size());
    EXPECT_EQ("two", lLines["entries"][0]["line"]);
    // A place in a history that is no more is none.
    Events lOthers(*mConsole, "Last-Event-ID: 999\r\n");
    lOthers.next("devices");
    ASSERT_TRUE(mPeer.send("four\n"));
    EXPECT_EQ("four", lOthers.next("lines")["entries"][0]["line"]);
}

TEST_F(ConsoleDevices, CannotWriteWhatABrowserOrATerminalObeys) {
    start();
    Events lEvents(*mConsole);
    lEvents.next("devices");
    std::string lBytes = "<script>\"\\\x1b[2J\xff\xe2\x80\xae";
    lBytes += '\0';
    ASSERT_TRUE(mPeer.send(lBytes + "\r\n"));
    const std::string lSafe = "<script>\"\\\\x1b[2J\\xff\\xe2\\x80\\xae\\x00";
    EXPECT_EQ(lSafe, lEvents.next("lines")["entries"][0]["line"]);
    const auto lPage = mConsole->get("/api/history");
    ASSERT_TRUE(lPage);
    EXPECT_EQ("application/json", lPage->get_header_value("Content-Type"));
    EXPECT_EQ(lSafe, Json::parse(lPage->body)["entries"].back()["line"]);
    for (const char lByte : lPage->body) {
        ASSERT_GE(static_cast<unsigned char>(lByte), 0x20);
        ASSERT_LT(static_cast<unsigned char>(lByte), 0x7f);
    }
}

TEST_F(ConsoleDevices, AreConnectedAnew) {
    start();
    const unsigned short lPort = mDevice->port();
    mPeer.close();
    ASSERT_TRUE(waitUntil([&] { return device()["state"] == "connecting"; }));
    EXPECT_THAT(device()["why"], HasSubstr("closed by the device"));
    mPeer = mDevice->accept();
    ASSERT_TRUE(mPeer.send("of another run\n"));
    EXPECT_TRUE(mConsole->waitForLine("of another run"));
    EXPECT_EQ("connected", device()["state"]);
    EXPECT_EQ(lPort, device()["port"]);
}

TEST_F(ConsoleDevices, ReportFiguresThatAreKept) {
    start();
    ASSERT_TRUE(mPeer.send(std::string(kReport) + "a line\n"));
    Json lFigures;
    // A step of ten seconds may end before the lines, or between them.
    const auto lSum = [&] {
        int lLines = 0;
        for (const Json& lPoint : lFigures["points"]) {
            lLines += lPoint["lines"].get<int>();
        }
        return lLines;
    };
    ASSERT_TRUE(waitUntil([&] {
        lFigures = mConsole->json("/api/figures?since=0&device=" + mDevice->address());
        return lSum() == 2;
    }));
    EXPECT_EQ(10000, lFigures["step"]);
    Json lReported;
    for (const Json& lPoint : lFigures["points"]) {
        EXPECT_EQ(mDevice->address(), lPoint["device"]);
        EXPECT_EQ(0, lPoint["lost"]);
        lReported = lPoint["load"].is_null() ? lReported : lPoint;
    }
    EXPECT_DOUBLE_EQ(17.01, lReported["load"]);
    EXPECT_EQ(24683656, lReported["memoryTotal"]);
    EXPECT_EQ(19190876, lReported["memoryFree"]);
    EXPECT_TRUE(mConsole->json("/api/figures?since=0&device=nobody")["points"].empty());
}

TEST(ConsoleLevels, OfAGatewayAreSetAndConfirmed) {
    test::Gateway lGateway;
    ASSERT_TRUE(lGateway.isReady());
    const test::Folder lFolder;
    const std::string lRedirect = lGateway.redirect();
    const std::string lFile = lFolder.write(
        "d.yaml",
        "devices:\n  gps1: {host: 127.0.0.1, port: " + lRedirect.substr(lRedirect.find(':') + 1) +
            ", level-port: " + lGateway.levelPort() + "}\ngroups:\n  boats: [gps1]\n");
    Console lConsole({"--devices", lFile, "--history", lFolder.path() + "/h.db", "boats"});
    ASSERT_TRUE(lConsole.isReady());
    const std::string lOrigin = "http://" + lConsole.address();
    for (const int lLevel : {5, 0}) {
        const auto lResult =
            lConsole.post(R"({"device":"gps1","level":)" + std::to_string(lLevel) + "}",
                          {{"X-Osx-Console", "1"}, {"Origin", lOrigin}});
        ASSERT_TRUE(lResult);
        EXPECT_EQ(200, lResult->status);
        const Json lAnswer = Json::parse(lResult->body);
        EXPECT_EQ(true, lAnswer["confirmed"]) << lResult->body;
        EXPECT_THAT(lAnswer["line"],
                    HasSubstr("set the debug level to [" + std::to_string(lLevel) + "]"));
        EXPECT_EQ(lLevel, lConsole.state()["devices"][0]["level"]);
    }
    EXPECT_EQ(Json({"boats"}), lConsole.state()["devices"][0]["groups"]);
    // Its own reports come with its lines.
    EXPECT_TRUE(waitUntil([&] { return lConsole.state()["devices"][0]["figures"].is_object(); }));
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST(ConsoleLevels, ThatNobodyTakesAreNotConfirmed) {
    TcpListener lLines;
    const test::Folder lFolder;
    const std::string lFile = lFolder.write(
        "d.yaml", "devices:\n  gps1: {host: 127.0.0.1, port: " + std::to_string(lLines.port()) +
                      ", level-port: " + std::to_string(test::freePort()) + "}\n");
    Console lConsole({"--devices", lFile, "--history", lFolder.path() + "/h.db", "gps1"});
    ASSERT_TRUE(lConsole.isReady());
    const TcpPeer lPeer = lLines.accept();
    const auto lResult = lConsole.post(R"({"device":"gps1","level":5})", {{"X-Osx-Console", "1"}});
    ASSERT_TRUE(lResult);
    EXPECT_EQ(200, lResult->status);
    const Json lAnswer = Json::parse(lResult->body);
    EXPECT_EQ(false, lAnswer["confirmed"]);
    EXPECT_THAT(lAnswer["why"], HasSubstr("Connection refused"));
}

TEST(ConsoleLoad, OfFiftyDevicesIsCarriedInBoundedMemory) {
    constexpr std::size_t kDevices = 50;
    constexpr std::size_t kRounds = 300;
    const test::Folder lFolder;
    std::vector<TcpListener> lListeners(kDevices);
    std::vector<std::string> lWords{"--history", lFolder.path() + "/h.db"};
    for (const TcpListener& lListener : lListeners) {
        lWords.push_back(lListener.address());
    }
    Console lConsole(lWords);
    ASSERT_TRUE(lConsole.isReady());
    std::vector<TcpPeer> lPeers;
    for (TcpListener& lListener : lListeners) {
        lPeers.push_back(lListener.accept());
        ASSERT_TRUE(lPeers.back().connected());
    }
    ASSERT_TRUE(waitUntil([&] { return lConsole.state()["newest"] == kDevices; }));
    Events lEvents(lConsole);
    lEvents.next("devices");
    std::thread lSending([&] {
        for (std::size_t lRound = 0; lRound < kRounds; ++lRound) {
            for (TcpPeer& lPeer : lPeers) {
                lPeer.send("line " + std::to_string(lRound) + std::string(80, 'x') + "\n");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    std::size_t lSeen = 0;
    while (lSeen < kDevices * kRounds) {
        const Json lLines = lEvents.next("lines");
        if (!lLines.is_object()) {
            break;
        }
        for (const Json& lEntry : lLines["entries"]) {
            lSeen += lEntry.contains("line") ? 1U : 0U;
        }
        lSeen += lLines["skipped"].get<std::size_t>();
    }
    lSending.join();
    EXPECT_EQ(kDevices * kRounds, lSeen);
    const Json lState = lConsole.state();
    for (const Json& lDevice : lState["devices"]) {
        EXPECT_EQ(kRounds, lDevice["lines"]);
    }
    EXPECT_EQ(kDevices * (kRounds + 1), lState["newest"]);
    const long lPeak = test::peakOf(lConsole.program());
    EXPECT_GT(lPeak, 0);
    EXPECT_LT(lPeak, test::kMostKb);
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST_F(ConsoleDevices, AreNotHeldUpByABrowserThatReadsNothing) {
    start();
    Events lEvents(*mConsole, "", 4096);
    lEvents.next("devices");
    constexpr std::size_t kLines = 2000;
    const std::string lLine = std::string(1000, 'x') + "\n";
    std::string lLines;
    for (std::size_t lCount = 0; lCount < kLines; ++lCount) {
        lLines += lLine;
    }
    const std::size_t lTimes = test::kFlood / 4 / lLines.size();
    for (std::size_t lTime = 0; lTime < lTimes; ++lTime) {
        ASSERT_TRUE(mPeer.send(lLines));
    }
    ASSERT_TRUE(mPeer.send("the end\n"));
    ASSERT_TRUE(mConsole->waitForLine("the end"));
    EXPECT_LT(test::peakOf(mConsole->program()), test::kMostKb);
    std::size_t lSkipped = 0;
    std::size_t lSeen = 0;
    while (lSkipped + lSeen < lTimes * kLines + 1) {
        const Json lBatch = lEvents.next("lines");
        ASSERT_TRUE(lBatch.is_object());
        lSkipped += lBatch["skipped"].get<std::size_t>();
        lSeen += lBatch["entries"].size();
    }
    EXPECT_GT(lSkipped, 0U);
    EXPECT_TRUE(mConsole->endsCleanly());
}

TEST_F(ConsoleDevices, AreLeftAtOnceBesideABrowserThatReadsNothing) {
    start();
    const Events lEvents(*mConsole, "", 4096);
    const std::string lLine = std::string(500, 'x') + "\n";
    for (int lTime = 0; lTime < 20000; ++lTime) {
        ASSERT_TRUE(mPeer.send(lLine));
    }
    ASSERT_TRUE(mPeer.send("the end\n"));
    ASSERT_TRUE(mConsole->waitForLine("the end"));
    mConsole->program().signal(SIGTERM);
    EXPECT_EQ(0, mConsole->program().wait(std::chrono::seconds(20)));
}
