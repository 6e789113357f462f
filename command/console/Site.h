// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the console answers to each request.
#ifndef OSX_COMMAND_CONSOLE_SITE_H
#define OSX_COMMAND_CONSOLE_SITE_H

#include <atomic>
#include <functional>
#include <string>

#include "console/Access.h"
#include "console/DeviceBoard.h"
#include "console/Feed.h"
#include "console/History.h"
#include "console/HttpServer.h"
#include "console/LevelDesk.h"

namespace command {

/// The parts that a site shows.
struct SiteParts {
    const DeviceBoard& board;
    Feed& feed;
    History& history;
    LevelDesk& levels;
};

class Site {
public:
    Site(const std::string& aHost, unsigned short aPort, const std::string& aToken,
         const SiteParts& aParts, const std::string& aVersion);

    ~Site() { end(); }
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    /// Fails if it cannot listen.
    void start() { mServer.start(); }

    /// Ends all requests.
    void end();

private:
    using Request = httplib::Request;
    using Response = httplib::Response;
    using Handling = httplib::Server::HandlerResponse;

    void addPage();
    void addCalls();
    void addErrors();
    void addFile(const std::string& aPath, const char* aType, std::string_view aBytes);
    void addCall(const std::string& aPath, void (Site::*aCall)(const Request&, Response&));

    Handling admit(const Request& aRequest, Response& aResponse);
    Handling letIn(const Request& aRequest, Response& aResponse);
    void answerGuarded(Response& aResponse, const std::function<void()>& aAnswer);
    void answerState(const Request& aRequest, Response& aResponse);
    void answerEvents(const Request& aRequest, Response& aResponse);
    void answerHistory(const Request& aRequest, Response& aResponse);
    void answerFigures(const Request& aRequest, Response& aResponse);
    void answerLevel(const Request& aRequest, Response& aResponse);

    const Access mAccess;
    const SiteParts mParts;
    const std::string mVersion;
    std::atomic<int> mStreams{0};
    std::atomic<bool> mHasEnded{false};
    HttpServer mServer;
};

}  // namespace command

#endif
