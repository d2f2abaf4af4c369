// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/message_body.h"

#include "simulator/glib_ptr.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace Simulator {

namespace {

// The bus allows 64 levels in a message; the rest is for the records and lists around a value.
constexpr int deepestValue = 32;
constexpr std::size_t longestSignature = 255;

/// The deepest level of the containers in a type.
int DepthOf(std::string_view type)
{
    int arrays = 0;
    int open = 0;
    int deepest = 0;
    for (const char letter : type) {
        open += letter == '(' || letter == '{' ? 1 : 0;
        open -= letter == ')' || letter == '}' ? 1 : 0;
        arrays += letter == 'a' ? 1 : 0; // counts those that are closed too: the type is short
        deepest = std::max(deepest, open);
    }
    return arrays + deepest;
}

/// A bus closes the connection of a sender whose messages break the protocol.
void RequireBusType(std::string_view type)
{
    const bool isEmptyBody = type == "()";
    const bool hasEmptyTuple = !isEmptyBody && type.find("()") != std::string_view::npos;
    const bool hasMaybe = type.find('m') != std::string_view::npos;
    if (hasMaybe || hasEmptyTuple || type.size() > longestSignature ||
        DepthOf(type) > deepestValue) {
        throw std::invalid_argument("a value of the type " + std::string(type.substr(0, 200)) +
                                    " cannot be sent on the bus");
    }
}

/// Checks the types of the values inside variants.
void RequireBusContent(GVariant* value, int depth)
{
    const std::string_view type = g_variant_get_type_string(value);
    if (type.find('v') == std::string_view::npos) {
        return;
    }
    if (depth == deepestValue) {
        throw std::invalid_argument("a value that is nested so deeply cannot be sent on the bus");
    }
    for (std::size_t index = 0; index < g_variant_n_children(value); ++index) {
        const Variant child(g_variant_get_child_value(value, index));
        if (type == "v") {
            const std::string_view content = g_variant_get_type_string(child.Get());
            RequireBusType(content == "()" ? "(())" : content);
        }
        RequireBusContent(child.Get(), depth + 1);
    }
}

} // namespace

Variant Body(const Variant& argument)
{
    GVariant* child = argument.Get();
    return Variant(g_variant_new_tuple(&child, 1));
}

Variant EmptyBody()
{
    return Variant(g_variant_new_tuple(nullptr, 0));
}

void RequireCodePoints(const std::string& text)
{
    for (std::size_t place = 0; place + 1 < text.size(); ++place) {
        if (text[place] != '\\') {
            continue;
        }
        ++place;
        const char letter = text[place];
        const std::size_t digits = letter == 'u' ? 4 : letter == 'U' ? 8 : 0;
        const std::string number = text.substr(place + 1, digits);
        if (!g_unichar_validate(static_cast<gunichar>(std::strtoul(number.c_str(), nullptr, 16)))) {
            throw std::invalid_argument("not a Unicode character: \\" + std::string(1, letter) +
                                        number);
        }
    }
}

void RequireTransportable(const Variant& value)
{
    RequireBusType(g_variant_get_type_string(value.Get()));
    RequireBusContent(value.Get(), 0);
}

namespace {

Variant Parse(const std::string& text)
{
    RequireCodePoints(text);
    ErrorSlot error;
    const Variant value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error));
    if (!value) {
        throw std::invalid_argument("not a value in GVariant text format (" + error.Message() +
                                    "): " + text.substr(0, 200));
    }
    RequireTransportable(value);
    return value;
}

} // namespace

Variant ParseBusValue(const std::string& text)
{
    Variant value = Parse(text);
    if (g_variant_is_of_type(value.Get(), G_VARIANT_TYPE_UNIT) != FALSE) {
        throw std::invalid_argument("a value of the type () cannot be sent on the bus");
    }
    return value;
}

Variant ParseBody(const std::string& text)
{
    Variant body = Parse(text.empty() ? "()" : text);
    if (g_variant_is_of_type(body.Get(), G_VARIANT_TYPE_TUPLE) == FALSE) {
        throw std::invalid_argument("a body is a tuple, such as ('one',): " + text.substr(0, 200));
    }
    return body;
}

} // namespace Simulator
