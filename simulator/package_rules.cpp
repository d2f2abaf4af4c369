// SPDX-License-Identifier: BSD-3-Clause
#include "package_rules.h"

#include <stdexcept>
#include <string_view>

namespace Simulator {

namespace {

std::string_view TakeComponent(std::string_view& rest)
{
    const auto end = rest.find_first_of(".-");
    const std::string_view component = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return component;
}

bool IsNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string_view WithoutZeros(std::string_view number)
{
    const auto first = number.find_first_not_of('0');
    return first == std::string_view::npos ? number.substr(number.size()) : number.substr(first);
}

int CompareNumbers(std::string_view left, std::string_view right)
{
    left = WithoutZeros(left);
    right = WithoutZeros(right);
    if (left.size() != right.size()) {
        return left.size() < right.size() ? -1 : 1;
    }
    return left.compare(right);
}

int CompareDotted(std::string_view left, std::string_view right)
{
    while (!left.empty() && !right.empty()) {
        const std::string_view first = TakeComponent(left);
        const std::string_view second = TakeComponent(right);
        const int order = IsNumber(first) && IsNumber(second) ? CompareNumbers(first, second)
                                                              : first.compare(second);
        if (order != 0) {
            return order;
        }
    }
    return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
}

std::string_view Suffix(std::string_view version)
{
    const auto dash = version.find('-');
    return dash == std::string_view::npos ? std::string_view() : version.substr(dash + 1);
}

} // namespace

bool IsPackageId(const std::string& id)
{
    return g_application_id_is_valid(id.c_str()) != FALSE;
}

bool IsPackageVersion(const std::string& version)
{
    // GLib's expressions, because those of the standard library recurse with the length.
    constexpr const char* pattern = "\\A[0-9]{1,9}(\\.[0-9]{1,9}){0,7}(-[0-9A-Za-z.]{1,64})?\\z";
    return g_regex_match_simple(pattern, version.c_str(), GRegexCompileFlags{},
                                GRegexMatchFlags{}) != FALSE;
}

int CompareVersions(const std::string& left, const std::string& right)
{
    const auto number = [](const std::string& version) {
        return std::string_view(version).substr(0, version.find('-'));
    };
    if (const int order = CompareDotted(number(left), number(right)); order != 0) {
        return order;
    }
    const std::string_view first = Suffix(left);
    const std::string_view second = Suffix(right);
    // 1.0-rc1 comes before 1.0.
    if (first.empty() != second.empty()) {
        return first.empty() ? 1 : -1;
    }
    return CompareDotted(first, second);
}

Variant ParseBusValue(const std::string& text)
{
    ErrorSlot error;
    const Variant value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error));
    if (!value) {
        throw std::invalid_argument("not a value in GVariant text format (" + error.Message() +
                                    "): " + text.substr(0, 200));
    }
    const std::string_view type = g_variant_get_type_string(value.Get());
    const bool emptyTuple = type != "()" && type.find("()") != std::string_view::npos;
    if (type.find('m') != std::string_view::npos || emptyTuple) {
        throw std::invalid_argument("a value of the type " + std::string(type) +
                                    " cannot travel on the bus");
    }
    return value;
}

Variant ParseBody(const std::string& text)
{
    Variant body = ParseBusValue(text.empty() ? "()" : text);
    if (g_variant_is_of_type(body.Get(), G_VARIANT_TYPE_TUPLE) == FALSE) {
        throw std::invalid_argument("a body is a tuple, such as ('one',): " + text.substr(0, 200));
    }
    return body;
}

} // namespace Simulator
