// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Console.h"
#include "console/Access.h"

namespace {

using command::Access;
using test::Console;
using test::Json;
using test::TcpListener;
using test::TcpPeer;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char kLevelBody[] = R"({"device":"gps1","level":5})";

/// A console whose device is not there.
class ConsoleAccess : public testing::Test {
protected:
    std::vector<std::string> words(const std::vector<std::string>& aMore = {}) const {
        std::vector<std::string> lWords{"--history", mFolder.path() + "/h.db", "127.0.0.1:1"};
        lWords.insert(lWords.end(), aMore.begin(), aMore.end());
        return lWords;
    }

    /// @return what an unusual request gets for an answer.
    static std::string answerTo(const Console& aConsole, const std::string& aRequest) {
        TcpPeer lPeer = TcpPeer::connect(aConsole.port());
        lPeer.send(aRequest);
        return lPeer.receiveUntil("no such text");
    }

    const test::Folder mFolder;
};

}  // namespace

TEST(Access, IsForNamesOfThisMachineAndItsPort) {
    const Access lLoopback("127.0.0.1", 8324, "");
    for (const char* lHost : {"127.0.0.1:8324", "localhost:8324", "127.9.9.9:8324"}) {
        EXPECT_TRUE(lLoopback.isHost(lHost)) << lHost;
    }
    for (const char* lHost : {"", ":8324", "127.0.0.1", "127.0.0.1:8325", "evil.example:8324",
                              "10.0.0.5:8324", "127.0.0.1.evil.example:8324", "127.0.0.1:8324x"}) {
        EXPECT_FALSE(lLoopback.isHost(lHost)) << lHost;
    }
    const Access lAnywhere("0.0.0.0", 8324, "x");
    EXPECT_TRUE(lAnywhere.isHost("10.0.0.5:8324"));
    EXPECT_FALSE(lAnywhere.isHost("evil.example:8324"));
    EXPECT_TRUE(Access("boat.example", 8324, "x").isHost("boat.example:8324"));
}

TEST(Access, NeedsTheTokenInAHeaderOrACookie) {
    const std::string lToken = command::makeToken();
    EXPECT_TRUE(command::isSound(lToken));
    EXPECT_NE(lToken, command::makeToken());
    const Access lAccess("10.0.0.5", 8324, lToken);
    EXPECT_TRUE(lAccess.isAdmitted("Bearer " + lToken, ""));
    EXPECT_TRUE(lAccess.isAdmitted("", "a=b; osx-console=" + lToken + ";c=d"));
    EXPECT_FALSE(lAccess.isAdmitted("", ""));
    EXPECT_FALSE(lAccess.isAdmitted("Bearer ", "osx-console="));
    EXPECT_FALSE(lAccess.isAdmitted("Bearer " + lToken + "x", ";;;xosx-console=" + lToken));
}

TEST_F(ConsoleAccess, ServesThePageWithHeadersThatKeepScriptsOut) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    for (const char* lPath : {"/", "/app.js", "/app.css"}) {
        const auto lResult = lConsole.get(lPath);
        ASSERT_TRUE(lResult) << lPath;
        EXPECT_EQ(200, lResult->status);
        EXPECT_FALSE(lResult->body.empty());
        EXPECT_THAT(lResult->get_header_value("Content-Security-Policy"),
                    MatchesRegex("default-src 'none'; script-src 'self'; style-src 'self'; .*"));
        EXPECT_EQ("nosniff", lResult->get_header_value("X-Content-Type-Options"));
        EXPECT_EQ("no-referrer", lResult->get_header_value("Referrer-Policy"));
        EXPECT_EQ("no-store", lResult->get_header_value("Cache-Control"));
    }
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST_F(ConsoleAccess, IsRefusedToOtherNamesAndOtherSites) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    for (const char* lPath : {"/", "/api/state", "/api/events", "/nothing"}) {
        EXPECT_EQ(403, lConsole.statusOf(lPath, {{"Host", "evil.example"}})) << lPath;
    }
    const std::string lLocal = "localhost:" + std::to_string(lConsole.port());
    EXPECT_EQ(200, lConsole.statusOf("/api/state", {{"Host", lLocal}}));
    EXPECT_EQ(403, lConsole.statusOf("/api/state", {{"Sec-Fetch-Site", "cross-site"}}));
    EXPECT_EQ(200, lConsole.statusOf("/api/state", {{"Sec-Fetch-Site", "same-origin"}}));
    EXPECT_EQ(200, lConsole.statusOf("/", {{"Sec-Fetch-Site", "cross-site"}})) << "a link";
    const std::string lHost = "Host: " + lConsole.address() + "\r\n";
    EXPECT_THAT(answerTo(lConsole, "GET / HTTP/1.1\r\n" + lHost + "Host: evil\r\n\r\n"),
                HasSubstr(" 403 "));
}

TEST_F(ConsoleAccess, FromElsewhereNeedsTheTokenThatIsPrinted) {
    Console lConsole(words(), "0.0.0.0");
    ASSERT_TRUE(lConsole.program().waitForOutput("?token="));
    ASSERT_TRUE(lConsole.program().waitForOutput("\n"));
    const std::string lOutput = lConsole.program().output();
    const std::string lToken = lOutput.substr(lOutput.find("?token=") + 7, 32);
    EXPECT_EQ(401, lConsole.statusOf("/"));
    EXPECT_EQ(401, lConsole.statusOf("/api/state"));
    EXPECT_EQ(401, lConsole.statusOf("/?token=" + std::string(32, '0')));
    EXPECT_EQ(200, lConsole.statusOf("/api/state", {{"Authorization", "Bearer " + lToken}}));
    const auto lResult = lConsole.get("/?token=" + lToken);
    ASSERT_TRUE(lResult);
    EXPECT_EQ(303, lResult->status);
    EXPECT_EQ("/", lResult->get_header_value("Location"));
    const std::string lCookie = lResult->get_header_value("Set-Cookie");
    EXPECT_EQ("osx-console=" + lToken + "; HttpOnly; SameSite=Strict; Path=/", lCookie);
    EXPECT_EQ(200, lConsole.statusOf("/", {{"Cookie", lCookie.substr(0, lCookie.find(';'))}}));
}

TEST_F(ConsoleAccess, MayNeedATokenOnThisMachine) {
    const std::string lToken = "a-token-of-my-own";
    Console lConsole(words({"--token", lToken}));
    ASSERT_TRUE(lConsole.isReady());
    EXPECT_EQ(401, lConsole.statusOf("/api/state"));
    EXPECT_EQ(200, lConsole.statusOf("/api/state", {{"Authorization", "Bearer " + lToken}}));
    EXPECT_EQ(std::string::npos, lConsole.program().output().find(lToken));
}

TEST_F(ConsoleAccess, TakesItsTokenFromTheEnvironment) {
    test::Program lProgram({"/usr/bin/env", "OSX_CONSOLE_TOKEN=short", OSX_PROGRAM, "console",
                            "--history", mFolder.path() + "/h.db", "127.0.0.1:1"});
    EXPECT_EQ(2, lProgram.wait());
    EXPECT_THAT(lProgram.output(), HasSubstr("--token: 16 to 128 letters"));
}

TEST_F(ConsoleAccess, ChangesALevelForItsOwnPageOnly) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    const auto lStatus = [&](const httplib::Headers& aHeaders, const std::string& aBody,
                             const std::string& aType = "application/json") {
        const auto lResult = lConsole.post(aBody, aHeaders, aType);
        return lResult ? lResult->status : 0;
    };
    const httplib::Headers lOwn{{"X-Osx-Console", "1"}};
    EXPECT_EQ(403, lStatus({}, kLevelBody));
    EXPECT_EQ(403,
              lStatus({{"X-Osx-Console", "1"}, {"Origin", "http://evil.example"}}, kLevelBody));
    EXPECT_EQ(403, lStatus({{"X-Osx-Console", "1"}, {"Origin", "null"}}, kLevelBody));
    EXPECT_EQ(400, lStatus(lOwn, kLevelBody, "text/plain"));
    for (const char* lBody :
         {"", "{", "[]", "5", R"({"device":"127.0.0.1:1"})", R"({"device":1,"level":1})",
          R"({"device":"127.0.0.1:1","level":-1})", R"({"device":"127.0.0.1:1","level":1.5})",
          R"({"device":"127.0.0.1:1","level":99999999999})", R"({"device":"nobody","level":1})"}) {
        const auto lResult = lConsole.post(lBody, lOwn);
        ASSERT_TRUE(lResult) << lBody;
        EXPECT_EQ(400, lResult->status) << lBody;
        EXPECT_TRUE(Json::parse(lResult->body)["error"].is_string()) << lBody;
    }
    EXPECT_EQ(413, lStatus(lOwn, std::string(5000, ' ')));
}

TEST_F(ConsoleAccess, AnswersWhatItDoesNotKnow) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    EXPECT_EQ(405, lConsole.statusOf("/api/level"));
    EXPECT_EQ(404, lConsole.statusOf("/api/other"));
    EXPECT_EQ(400, lConsole.statusOf("/app.js", {{"Range", "bytes=0-1,0-1"}}));
    const std::string lRest = " HTTP/1.1\r\nHost: " + lConsole.address() + "\r\n\r\n";
    EXPECT_THAT(answerTo(lConsole, "DELETE /api/state" + lRest), HasSubstr(" 405 "));
    EXPECT_THAT(answerTo(lConsole, "nonsense\r\n\r\n"), HasSubstr(" 400 "));
    for (const char* lPath :
         {"/api/history?grep=(", "/api/history?before=x", "/api/history?limit=0",
          "/api/history?limit=1001", "/api/history?after=-1", "/api/figures?since=1.5",
          "/api/history?grep=((((a{99}){99}){99}){99})", "/api/history?grep=(a)%5C1"}) {
        const auto lResult = lConsole.get(lPath);
        ASSERT_TRUE(lResult) << lPath;
        EXPECT_EQ(400, lResult->status) << lPath;
        EXPECT_TRUE(Json::parse(lResult->body)["error"].is_string()) << lPath;
    }
}

TEST_F(ConsoleAccess, IsNotEndedByARequestWithoutEnd) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    const std::string lFirst = "POST /api/level HTTP/1.1\r\nHost: " + lConsole.address() + "\r\n";
    const std::string lPiece(65536, 'x');
    for (const std::string& lStart :
         {std::string(), lFirst, lFirst + "Transfer-Encoding: chunked\r\n\r\nffffffff\r\n"}) {
        TcpPeer lPeer = TcpPeer::connect(lConsole.port());
        ASSERT_TRUE(lPeer.send(lStart));
        std::size_t lSent = 0;
        while (lSent < 256 * lPiece.size() && lPeer.send(lPiece)) {
            lSent += lPiece.size();
        }
        EXPECT_LT(lSent, 256 * lPiece.size()) << "it took all of it";
    }
    EXPECT_EQ(200, lConsole.statusOf("/api/state"));
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST_F(ConsoleAccess, EndsConnectionsThatAskForNothing) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    std::vector<TcpPeer> lIdle;
    for (int lPeer = 0; lPeer < 36; ++lPeer) {
        lIdle.push_back(TcpPeer::connect(lConsole.port()));
    }
    EXPECT_EQ(200, lConsole.statusOf("/api/state")) << "behind them";
    EXPECT_TRUE(lIdle.front().waitForClose());
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST_F(ConsoleAccess, LetsSoManyFollow) {
    Console lConsole(words());
    ASSERT_TRUE(lConsole.isReady());
    const auto lFollow = [&] {
        TcpPeer lPeer = TcpPeer::connect(lConsole.port());
        lPeer.send("GET /api/events HTTP/1.1\r\nHost: " + lConsole.address() + "\r\n\r\n");
        return lPeer;
    };
    std::vector<TcpPeer> lFollowing;
    for (int lPeer = 0; lPeer < 24; ++lPeer) {
        lFollowing.push_back(lFollow());
        ASSERT_THAT(lFollowing.back().receiveUntil("\r\n"), HasSubstr(" 200 "));
    }
    EXPECT_THAT(lFollow().receiveUntil("\r\n"), HasSubstr(" 503 "));
    EXPECT_EQ(200, lConsole.statusOf("/api/state")) << "the rest is there for others";
    lFollowing.front().reset();
    EXPECT_TRUE(test::waitUntil(
        [&] { return lFollow().receiveUntil("\r\n").find(" 200 ") != std::string::npos; }));
    EXPECT_TRUE(lConsole.endsCleanly());
}

TEST_F(ConsoleAccess, WantsOptionsThatMakeSense) {
    for (const std::vector<std::string>& lWrong :
         std::vector<std::vector<std::string>>{{"--listen", "x:y"},
                                               {"--listen", "127.0.0.1:0"},
                                               {"--token", "short"},
                                               {"--token", "a token with spaces in it"},
                                               {"--history-age", "7"},
                                               {"--history-age", "5s"},
                                               {"--history-size", "1M"},
                                               {"--history-size", "500"},
                                               {"--history", "/proc/nothing/h.db"}}) {
        std::vector<std::string> lWords{"console", "127.0.0.1:1"};
        lWords.insert(lWords.end(), lWrong.begin(), lWrong.end());
        if (lWrong.front() != "--history") {
            lWords.insert(lWords.end(), {"--history", mFolder.path() + "/h.db"});
        }
        const test::Result lResult = test::run(lWords);
        EXPECT_EQ(2, lResult.status) << lWrong[0] << " " << lWrong[1];
        EXPECT_THAT(lResult.output, MatchesRegex("osx: [^\n]*\n"));
    }
    EXPECT_EQ(2, test::run({"console"}).status);
}

TEST_F(ConsoleAccess, SaysThatItsPortIsTaken) {
    const TcpListener lTaken;
    const test::Result lResult = test::run({"console", "--listen", lTaken.address(), "--history",
                                            mFolder.path() + "/h.db", "127.0.0.1:1"});
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ("osx: " + lTaken.address() + ": cannot listen there: Address already in use\n",
              lResult.output);
}
