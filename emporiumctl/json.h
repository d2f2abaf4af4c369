// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace EmporiumCtl {

/// Keys stay in the order in which they are written down here, which is the documented one.
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

/// An event as `watch --json` prints it and `record` writes it, without its time.
Json EventToJson(const char* name, const Emporium::Package& package);
Json EventToJson(const char* name, const Emporium::Operation& operation);

/// One document on one line. What is no UTF-8 is replaced: a program that reads it could not take
/// it otherwise.
std::string Line(const Json& document);

} // namespace EmporiumCtl
