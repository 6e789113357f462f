// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/DeviceBoard.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>

#include "common/text.h"
#include "console/Item.h"
#include "level/LevelRequest.h"
#include "record/entry.h"

namespace command {

namespace {

using Json = nlohmann::ordered_json;

template <class Value>
Json orNull(const std::optional<Value>& aValue) {
    return aValue ? Json(*aValue) : Json();
}

Json knownOrNull(double aNumber) {
    return aNumber < 0 ? Json() : Json(aNumber);
}

Json knownOrNull(long aNumber) {
    return aNumber < 0 ? Json() : Json(aNumber);
}

std::int64_t intervalOf(Moment aMoment) {
    return toMs(aMoment) / kFigureStepMs * kFigureStepMs;
}

}  // namespace

DeviceBoard::DeviceBoard(const std::vector<Device>& aDevices, const DeviceList& aList)
    : mInterval(intervalOf(now())) {
    for (const Device& lDevice : aDevices) {
        State lState;
        lState.device = lDevice;
        lState.groups = aList.groupsOf(lDevice.name);
        lState.since = toMs(now());
        mStates.push_back(std::move(lState));
    }
}

void DeviceBoard::take(const Event& aEvent) {
    const std::lock_guard lLock(mMutex);
    State& lState = mStates[aEvent.device];
    if (aEvent.kind == Kind::kLine) {
        takeLine(lState, aEvent);
        return;
    }
    lState.why = forTerminal(markText(aEvent));
    if (aEvent.kind == Kind::kLinesLost) {
        lState.lost += aEvent.count;
        lState.point.lost += aEvent.count;
    }
    const bool lIsEnd = aEvent.kind == Kind::kDisconnected || aEvent.kind == Kind::kUnreachable;
    if (lIsEnd || aEvent.kind == Kind::kConnected) {
        if (lState.isConnected == lIsEnd) {
            lState.since = toMs(aEvent.time);
        }
        lState.isConnected = !lIsEnd;
        // Meanwhile it may be another run of the device.
        lState.level.reset();
    }
}

void DeviceBoard::takeLine(State& aState, const Event& aEvent) {
    const std::int64_t lAt = toMs(aEvent.time);
    advance(aState, lAt / 1000);
    ++aState.linesInSecond[placeOf(aState.second)];
    ++aState.lines;
    ++aState.point.lines;
    if (const auto lLevel = levelSetBy(aEvent.text)) {
        aState.level = lLevel;
    }
    if (const auto lFigures = figuresInLog(aEvent.text)) {
        aState.reported = Reported{lAt, *lFigures};
        aState.point.figures = lFigures;
    }
}

std::size_t DeviceBoard::placeOf(std::int64_t aSecond) {
    return static_cast<std::size_t>(static_cast<std::uint64_t>(aSecond) % (kRateSeconds + 1));
}

/// The counts of the seconds between are 0; after a step of the clock all are.
void DeviceBoard::advance(State& aState, std::int64_t aSecond) {
    const std::int64_t lSize = static_cast<std::int64_t>(aState.linesInSecond.size());
    if (aSecond < aState.second - lSize || aSecond > aState.second + lSize) {
        aState.linesInSecond.fill(0);
        aState.second = aSecond;
    }
    while (aState.second < aSecond) {
        ++aState.second;
        aState.linesInSecond[placeOf(aState.second)] = 0;
    }
}

std::vector<FigurePoint> DeviceBoard::takePoints(Moment aNow) {
    const std::int64_t lInterval = intervalOf(aNow);
    std::vector<FigurePoint> lPoints;
    const std::lock_guard lLock(mMutex);
    if (lInterval == mInterval) {
        return lPoints;
    }
    for (State& lState : mStates) {
        lState.point.at = mInterval;
        lState.point.device = lState.device.name;
        lPoints.push_back(lState.point);
        lState.point = FigurePoint{};
    }
    mInterval = lInterval;
    return lPoints;
}

std::string DeviceBoard::json(Moment aNow) const {
    std::string lList = "[";
    const std::lock_guard lLock(mMutex);
    for (const State& lState : mStates) {
        lList += (lList.size() == 1 ? "" : ",") + jsonOf(lState, toMs(aNow) / 1000);
    }
    return lList + "]";
}

/// The rate is that of the last whole seconds.
std::string DeviceBoard::jsonOf(const State& aState, std::int64_t aSecond) {
    State lState = aState;
    advance(lState, aSecond);
    const auto& lCounts = lState.linesInSecond;
    const std::uint64_t lCurrent = lCounts[placeOf(lState.second)];
    const std::uint64_t lRecent =
        std::accumulate(lCounts.begin(), lCounts.end(), std::uint64_t{0}) - lCurrent;
    Json lObject;
    lObject["name"] = lState.device.name;
    lObject["host"] = lState.device.host;
    lObject["port"] = lState.device.port;
    lObject["levelPort"] = lState.device.levelPort;
    lObject["groups"] = lState.groups;
    lObject["state"] = lState.isConnected ? "connected" : "connecting";
    lObject["since"] = lState.since;
    lObject["why"] = lState.why;
    lObject["rate"] = static_cast<double>(lRecent) / kRateSeconds;
    lObject["lines"] = lState.lines;
    lObject["lost"] = lState.lost;
    lObject["level"] = orNull(lState.level);
    lObject["figures"] = Json();
    if (lState.reported) {
        const Figures& lFigures = lState.reported->figures;
        lObject["figures"] = {{"at", lState.reported->at},
                              {"load", knownOrNull(lFigures.load)},
                              {"memoryTotal", knownOrNull(lFigures.totalKb)},
                              {"memoryFree", knownOrNull(lFigures.freeKb)}};
    }
    return lObject.dump();
}

std::optional<std::size_t> DeviceBoard::find(const std::string& aName) const {
    for (std::size_t lNumber = 0; lNumber < mStates.size(); ++lNumber) {
        if (mStates[lNumber].device.name == aName) {
            return lNumber;
        }
    }
    return std::nullopt;
}

bool DeviceBoard::isConnected(std::size_t aNumber) const {
    const std::lock_guard lLock(mMutex);
    return mStates[aNumber].isConnected;
}

}  // namespace command
