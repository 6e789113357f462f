// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Site.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <nlohmann/json.hpp>

#include "common/Failure.h"
#include "common/text.h"
#include "console/EventStream.h"
#include "console/page.h"
#include "console/queries.h"

namespace command {

namespace {

/// The other connections are for all else.
constexpr int kMostStreams = 24;
constexpr const char* kJson = "application/json";
constexpr const char* kOnlyPost = "/api/level";

const httplib::Headers kHeaders{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
     "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

void answer(httplib::Response& aResponse, const std::string& aJson) {
    aResponse.set_content(aJson, kJson);
}

void refuse(httplib::Response& aResponse, int aStatus, const std::string& aWhy) {
    nlohmann::ordered_json lObject;
    lObject["error"] = forTerminal(aWhy);
    aResponse.status = aStatus;
    answer(aResponse, lObject.dump());
}

bool isCall(const std::string& aPath) {
    return aPath.compare(0, 5, "/api/") == 0;
}

/// @return whether the page of another site has the browser ask.
bool isFromElsewhere(const httplib::Request& aRequest) {
    const std::string lSite = aRequest.get_header_value("Sec-Fetch-Site");
    return isCall(aRequest.path) && !lSite.empty() && lSite != "same-origin" && lSite != "none";
}

std::uint64_t placeOf(const httplib::Request& aRequest, std::uint64_t aNewest) {
    const std::string lText = aRequest.has_header("Last-Event-ID")
                                  ? aRequest.get_header_value("Last-Event-ID")
                                  : aRequest.get_param_value("after");
    std::uint64_t lPlace = 0;
    const char* const lEnd = lText.data() + lText.size();
    const auto [lStop, lError] = std::from_chars(lText.data(), lEnd, lPlace);
    const bool lIsNumber = !lText.empty() && lError == std::errc() && lStop == lEnd;
    // What is beyond the newest is of a history that is no more.
    return lIsNumber && lPlace <= aNewest ? lPlace : aNewest;
}

}  // namespace

Site::Site(const std::string& aHost, unsigned short aPort, const std::string& aToken,
           const SiteParts& aParts, const std::string& aVersion)
    : mAccess(aHost, aPort, aToken), mParts(aParts), mVersion(aVersion), mServer(aHost, aPort) {
    mServer.set_default_headers(kHeaders);
    mServer.set_pre_routing_handler([this](const Request& aRequest, Response& aResponse) {
        return admit(aRequest, aResponse);
    });
    addPage();
    addCalls();
    addErrors();
}

void Site::end() {
    mHasEnded = true;
    mParts.feed.end();
    mParts.levels.end();
    mServer.end();
}

void Site::addPage() {
    addFile("/", "text/html; charset=utf-8", kPage);
    addFile("/app.js", "text/javascript; charset=utf-8", kPageScript);
    addFile("/app.css", "text/css; charset=utf-8", kPageStyle);
}

void Site::addFile(const std::string& aPath, const char* aType, std::string_view aBytes) {
    mServer.Get(aPath, [aType, aBytes](const Request&, Response& aResponse) {
        aResponse.set_content(aBytes.data(), aBytes.size(), aType);
    });
}

void Site::addCalls() {
    addCall("/api/state", &Site::answerState);
    addCall("/api/events", &Site::answerEvents);
    addCall("/api/history", &Site::answerHistory);
    addCall("/api/figures", &Site::answerFigures);
    mServer.Post(kOnlyPost, [this](const Request& aRequest, Response& aResponse) {
        answerGuarded(aResponse, [&] { answerLevel(aRequest, aResponse); });
    });
}

void Site::addCall(const std::string& aPath, void (Site::*aCall)(const Request&, Response&)) {
    mServer.Get(aPath, [this, aCall](const Request& aRequest, Response& aResponse) {
        answerGuarded(aResponse, [&] { (this->*aCall)(aRequest, aResponse); });
    });
}

void Site::addErrors() {
    mServer.set_error_handler([](const Request& aRequest, Response& aResponse) {
        constexpr std::array<const char*, 7> kOnlyGet{"/",           "/app.js",     "/app.css",
                                                      "/api/state",  "/api/events", "/api/history",
                                                      "/api/figures"};
        if (!aResponse.body.empty()) {
            return;
        }
        const bool lIsRead =
            std::find(kOnlyGet.begin(), kOnlyGet.end(), aRequest.path) != kOnlyGet.end();
        if (aResponse.status == 404 && (lIsRead || aRequest.path == kOnlyPost)) {
            aResponse.set_header("Allow", lIsRead ? "GET, HEAD" : "POST");
            refuse(aResponse, 405, "this is no way to ask for it");
        } else {
            refuse(aResponse, aResponse.status,
                   aResponse.status == 404 ? "there is no such page" : "this request is none");
        }
    });
    mServer.set_exception_handler(
        [](const Request&, Response& aResponse, const std::exception_ptr&) {
            refuse(aResponse, 500, "the console cannot answer this now");
        });
}

/// @return whether the request has got its answer already.
Site::Handling Site::admit(const Request& aRequest, Response& aResponse) {
    if (aRequest.get_header_value_count("Host") != 1 ||
        !mAccess.isHost(aRequest.get_header_value("Host"))) {
        refuse(aResponse, 403, "this console has another name");
    } else if (isFromElsewhere(aRequest)) {
        refuse(aResponse, 403, "another site's page asks");
    } else if (mAccess.hasToken() && aRequest.path == "/" && aRequest.has_param("token")) {
        return letIn(aRequest, aResponse);
    } else if (!mAccess.isAdmitted(aRequest.get_header_value("Authorization"),
                                   aRequest.get_header_value("Cookie"))) {
        refuse(aResponse, 401, "open the address with the token that the console has printed");
    } else if (aRequest.has_header("Range")) {
        // httplib answers with as many copies as there are ranges.
        refuse(aResponse, 400, "nothing is given in parts");
    } else {
        return Handling::Unhandled;
    }
    return Handling::Handled;
}

/// Takes the token out of the address, where it would stay in the browser's history.
Site::Handling Site::letIn(const Request& aRequest, Response& aResponse) {
    if (mAccess.isToken(aRequest.get_param_value("token"))) {
        aResponse.set_header("Set-Cookie", mAccess.cookie());
        aResponse.set_redirect("/", 303);
    } else {
        refuse(aResponse, 401, "the token is another one");
    }
    return Handling::Handled;
}

void Site::answerGuarded(Response& aResponse, const std::function<void()>& aAnswer) {
    try {
        aAnswer();
    } catch (const Failure& lFailure) {
        refuse(aResponse, 400, lFailure.what());
    } catch (const DatabaseError& lError) {
        if (lError.isDamage()) {
            mParts.history.noteDamage();
        }
        refuse(aResponse, 500, std::string("the history cannot be read: ") + lError.what());
    }
}

void Site::answerState(const Request&, Response& aResponse) {
    mParts.history.flush();
    std::uint64_t lOldest = 0;
    try {
        lOldest = HistoryReader(mParts.history.file(), mHasEnded).range().first;
    } catch (const DatabaseError& lError) {
        if (lError.isDamage()) {
            mParts.history.noteDamage();
        }
    }
    const Moment lNow = now();
    const HistoryLimits& lLimits = mParts.history.limits();
    const std::string lRest = R"(,"now":)" + std::to_string(toMs(lNow)) + R"(,"limits":{"ageS":)" +
                              std::to_string(lLimits.age.count()) + R"(,"bytes":)" +
                              std::to_string(lLimits.bytes) + R"(},"devices":)" +
                              mParts.board.json(lNow) + R"(,"oldest":)" + std::to_string(lOldest) +
                              R"(,"newest":)" + std::to_string(mParts.feed.newest()) + "}";
    answer(aResponse, R"({"version":)" + nlohmann::json(mVersion).dump() + lRest);
}

void Site::answerEvents(const Request& aRequest, Response& aResponse) {
    if (mStreams.fetch_add(1) >= kMostStreams) {
        --mStreams;
        refuse(aResponse, 503, "too many browsers follow");
        return;
    }
    const auto lStream = std::make_shared<EventStream>(mParts.feed, mParts.board,
                                                       placeOf(aRequest, mParts.feed.newest()));
    aResponse.set_chunked_content_provider(
        "text/event-stream",
        [lStream](std::size_t, httplib::DataSink& aSink) {
            const std::string lText = lStream->next();
            return !lText.empty() && aSink.write(lText.data(), lText.size());
        },
        [this](bool) { --mStreams; });
}

void Site::answerHistory(const Request& aRequest, Response& aResponse) {
    const HistoryQuery lQuery = historyQueryOf(aRequest);
    mParts.history.flush();
    const HistoryPage lPage = HistoryReader(mParts.history.file(), mHasEnded).page(lQuery);
    std::string lItems;
    for (const Item& lItem : lPage.items) {
        lItems += (lItems.empty() ? "" : ",") + toJson(lItem);
    }
    answer(aResponse, R"({"entries":[)" + lItems + R"(],"more":)" +
                          (lPage.hasMore ? "true" : "false") + R"(,"reached":)" +
                          std::to_string(lPage.reached) + "}");
}

void Site::answerFigures(const Request& aRequest, Response& aResponse) {
    const FigureQuery lQuery = figureQueryOf(aRequest);
    mParts.history.flush();
    const FigurePage lPage =
        HistoryReader(mParts.history.file(), mHasEnded).figures(lQuery, toMs(now()));
    answer(aResponse,
           R"({"step":)" + std::to_string(lPage.step) + R"(,"points":[)" + lPage.points + "]}");
}

void Site::answerLevel(const Request& aRequest, Response& aResponse) {
    // Both make a browser ask first whether a page of another site may do so.
    if (aRequest.get_header_value("X-Osx-Console") != "1" ||
        !Access::isOwnOrigin(aRequest.get_header_value("Origin"),
                             aRequest.get_header_value("Host"))) {
        refuse(aResponse, 403, "only the console's own page sets levels");
        return;
    }
    if (aRequest.get_header_value("Content-Type").compare(0, 16, kJson) != 0) {
        failInput("the body has to be JSON");
    }
    const LevelQuery lQuery = levelQueryOf(aRequest.body, mParts.board);
    const LevelDesk::Answer lAnswer = mParts.levels.set(lQuery.device, lQuery.level);
    nlohmann::ordered_json lObject;
    lObject["confirmed"] = lAnswer.isConfirmed;
    lObject[lAnswer.isConfirmed ? "line" : "why"] = forTerminal(lAnswer.text);
    answer(aResponse, lObject.dump());
}

}  // namespace command
