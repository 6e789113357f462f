// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "record/entry.h"

#include <array>
#include <nlohmann/json.hpp>

#include "common/text.h"

namespace command {

namespace {

using Json = nlohmann::ordered_json;

struct MarkName {
    Kind kind;
    const char* name;
};
constexpr std::array<MarkName, 8> kMarks{{{Kind::kConnected, "connected"},
                                          {Kind::kDisconnected, "disconnected"},
                                          {Kind::kUnreachable, "unreachable"},
                                          {Kind::kLinesLost, "lines-lost"},
                                          {Kind::kCut, "cut"},
                                          {Kind::kOversize, "oversize"},
                                          {Kind::kRecordGap, "record-gap"},
                                          {Kind::kRecordDamaged, "record-damaged"}}};

bool readMark(const std::string& aName, Kind& aKind) {
    for (const MarkName& lMark : kMarks) {
        if (aName == lMark.name) {
            aKind = lMark.kind;
            return true;
        }
    }
    return false;
}

std::string textIn(const Json& aObject, const char* aKey) {
    const auto lFound = aObject.find(aKey);
    return lFound != aObject.end() && lFound->is_string() ? lFound->get<std::string>() : "";
}

}  // namespace

const char* markName(Kind aKind) {
    for (const MarkName& lMark : kMarks) {
        if (lMark.kind == aKind) {
            return lMark.name;
        }
    }
    return "";
}

std::string toJson(const Entry& aEntry) {
    const Event& lEvent = aEntry.event;
    Json lObject;
    lObject["time"] = forPrograms(lEvent.time);
    lObject["device"] = toUtf8(aEntry.device);
    if (lEvent.kind == Kind::kLine) {
        lObject["line"] = toUtf8(lEvent.text);
    } else {
        lObject["mark"] = markName(lEvent.kind);
        lObject["text"] = toUtf8(lEvent.text);
        lObject["count"] = lEvent.count;
    }
    return lObject.dump();
}

bool fromJson(const std::string& aLine, Entry& aEntry) {
    const Json lObject = Json::parse(aLine, nullptr, false);
    if (!lObject.is_object()) {
        return false;
    }
    const auto lTime = fromProgram(textIn(lObject, "time"));
    if (!lTime) {
        return false;
    }
    aEntry = Entry{};
    aEntry.event.time = *lTime;
    aEntry.device = textIn(lObject, "device");
    if (lObject.contains("line")) {
        aEntry.event.kind = Kind::kLine;
        aEntry.event.text = textIn(lObject, "line");
        return true;
    }
    aEntry.event.text = textIn(lObject, "text");
    const auto lCount = lObject.find("count");
    aEntry.event.count =
        lCount != lObject.end() && lCount->is_number_unsigned() ? lCount->get<std::uint64_t>() : 0;
    return readMark(textIn(lObject, "mark"), aEntry.event.kind);
}

std::string markText(const Event& aEvent) {
    const std::string lCount = std::to_string(aEvent.count);
    switch (aEvent.kind) {
        case Kind::kConnected:
            return "connected to " + aEvent.text;
        case Kind::kDisconnected:
            return "connection ended: " + aEvent.text;
        case Kind::kUnreachable:
            return "not reachable, trying on: " + aEvent.text;
        case Kind::kLinesLost:
            return lCount + " lines lost here: the device had no more room for them";
        case Kind::kCut:
            return lCount + " bytes left out here";
        case Kind::kOversize:
            return "a block of " + lCount + " bytes is beyond the limit";
        case Kind::kRecordGap:
            return lCount + " entries are missing in the record here: " + aEvent.text;
        case Kind::kRecordDamaged:
            return "the record was damaged; what there was is in " + aEvent.text;
        case Kind::kLine:
        case Kind::kBlock:
        case Kind::kEnd:
            break;
    }
    return {};
}

}  // namespace command
