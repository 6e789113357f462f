// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Item.h"

#include <nlohmann/json.hpp>

#include "common/text.h"
#include "record/entry.h"

namespace command {

Item itemOf(const Event& aEvent, const std::string& aDevice) {
    Item lItem;
    lItem.at = toMs(aEvent.time);
    lItem.device = aDevice;
    lItem.mark = markName(aEvent.kind);
    lItem.text = forTerminal(aEvent.text);
    lItem.count = aEvent.count;
    return lItem;
}

std::string toJson(const Item& aItem) {
    nlohmann::ordered_json lObject;
    lObject["id"] = aItem.id;
    lObject["at"] = aItem.at;
    lObject["device"] = aItem.device;
    if (aItem.mark.empty()) {
        lObject["line"] = aItem.text;
    } else {
        lObject["mark"] = aItem.mark;
        lObject["text"] = aItem.text;
        lObject["count"] = aItem.count;
    }
    // A damaged history may hold what is no UTF-8.
    return lObject.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace command
