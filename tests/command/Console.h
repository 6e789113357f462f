// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A console that runs beside the test, and what a browser asks it.
#ifndef OSX_TESTS_COMMAND_CONSOLE_H
#define OSX_TESTS_COMMAND_CONSOLE_H

#include <gtest/gtest.h>
#include <httplib.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Folder.h"
#include "run.h"
#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/waitUntil.h"

namespace test {

using Json = nlohmann::json;

class Console {
public:
    /// @param aWords devices and options.
    explicit Console(std::vector<std::string> aWords, const std::string& aHost = "127.0.0.1")
        : mHost(aHost) {
        aWords.insert(aWords.begin(), {"console", "--listen", address()});
        mProgram = std::make_unique<Program>(commandOf(std::move(aWords)));
    }

    bool isReady() { return mProgram->waitForOutput("the console is at "); }

    std::string address() const { return mHost + ":" + std::to_string(mPort); }
    unsigned short port() const { return mPort; }
    Program& program() { return *mProgram; }

    httplib::Result get(const std::string& aPath, const httplib::Headers& aHeaders = {}) const {
        return client().Get(aPath, aHeaders);
    }

    /// @return the status of an answer; 0 if none came.
    int statusOf(const std::string& aPath, const httplib::Headers& aHeaders = {}) const {
        const auto lResult = get(aPath, aHeaders);
        return lResult ? lResult->status : 0;
    }

    Json json(const std::string& aPath, const httplib::Headers& aHeaders = {}) const {
        const auto lResult = get(aPath, aHeaders);
        EXPECT_TRUE(lResult) << aPath;
        return lResult ? Json::parse(lResult->body, nullptr, false) : Json();
    }

    Json state() const { return json("/api/state"); }

    httplib::Result post(const std::string& aBody, const httplib::Headers& aHeaders,
                         const std::string& aType = "application/json") const {
        return client().Post("/api/level", aHeaders, aBody, aType);
    }

    /// Waits until a line is among the latest of the history.
    bool waitForLine(const std::string& aText) const {
        return waitUntil([&] {
            const Json lPage = json("/api/history?limit=50");
            for (const Json& lEntry : lPage["entries"]) {
                if (lEntry.value("line", "") == aText) {
                    return true;
                }
            }
            return false;
        });
    }

    bool endsCleanly() {
        mProgram->signal(SIGINT);
        return mProgram->wait() == 0;
    }

private:
    httplib::Client client() const {
        httplib::Client lClient("127.0.0.1", mPort);
        lClient.set_read_timeout(30);
        return lClient;
    }

    std::string mHost;
    unsigned short mPort = freePort();
    std::unique_ptr<Program> mProgram;
};

/// The events of a stream, as they come, until one is the wanted one.
class Events {
public:
    explicit Events(const Console& aConsole, const std::string& aHeader = "",
                    int aReceiveBuffer = 0)
        : mPeer(TcpPeer::connect(aConsole.port(), aReceiveBuffer)) {
        EXPECT_TRUE(mPeer.send("GET /api/events HTTP/1.1\r\nHost: " + aConsole.address() + "\r\n" +
                               aHeader + "\r\n"));
    }

    /// @return the data of the next event of that name.
    Json next(const std::string& aName) {
        const std::string lStart = "event: " + aName + "\n";
        for (;;) {
            std::size_t lAt = mText.find(lStart);
            std::size_t lEnd = lAt == std::string::npos ? lAt : mText.find("\n\n", lAt);
            if (lEnd != std::string::npos) {
                const std::size_t lData = mText.find("data: ", lAt) + 6;
                const Json lJson = Json::parse(mText.substr(lData, lEnd - lData), nullptr, false);
                mText.erase(0, lEnd + 2);
                return lJson;
            }
            if (!read()) {
                return {};
            }
        }
    }

    TcpPeer& peer() { return mPeer; }

private:
    /// Reads one piece of the answer, which stands behind its length in hexadecimal.
    bool read() {
        if (!mIsPastHeader) {
            const std::string lHeader = mPeer.receiveUntil("\r\n\r\n");
            mRaw = lHeader.substr(std::min(lHeader.size(), lHeader.find("\r\n\r\n") + 4));
            mIsPastHeader = true;
        }
        std::size_t lLine = 0;
        while ((lLine = mRaw.find("\r\n")) == std::string::npos) {
            if (!more(1)) {
                return false;
            }
        }
        const std::size_t lLength = std::stoul("0" + mRaw.substr(0, lLine), nullptr, 16);
        const std::size_t lAll = lLine + 2 + lLength + 2;
        if (mRaw.size() < lAll && !more(lAll - mRaw.size())) {
            return false;
        }
        mText += mRaw.substr(lLine + 2, lLength);
        mRaw.erase(0, lAll);
        return lLength > 0;
    }

    bool more(std::size_t aCount) {
        const std::string lBytes = mPeer.receive(aCount);
        mRaw += lBytes;
        return lBytes.size() == aCount;
    }

    TcpPeer mPeer;
    bool mIsPastHeader = false;
    std::string mRaw;
    std::string mText;
};

}  // namespace test

#endif
