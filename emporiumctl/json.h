// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/call_error.h"
#include "emporiumctl/snapshot.h"
#include "text/printable.h"

#include <emporium/emporium.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace EmporiumCtl {

/// Keeps keys in insertion order, which is documented.
using Json = nlohmann::ordered_json;

Json ToJson(const Emporium::Package& package);
Json ToJson(const Emporium::Operation& operation);

template <typename T>
Json ToJson(const std::vector<T>& items)
{
    Json list = Json::array();
    for (const T& item : items) {
        list.push_back(ToJson(item));
    }
    return list;
}

Json ToJson(const Snapshot& snapshot);
Json ToJson(const CallError& error);

/// An event as `watch --json` prints it and `record` writes it, without its time.
Json EventToJson(const char* name, const Emporium::Package& package);
Json EventToJson(const char* name, const Emporium::Operation& operation);

/// The document on one line, with escapes for what is not printable. Invalid UTF-8 is replaced: JSON
/// readers would refuse it.
std::string Line(const Json& document, Text::Letters letters = Text::Letters::All);

} // namespace EmporiumCtl
