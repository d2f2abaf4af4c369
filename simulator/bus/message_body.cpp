// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/message_body.h"

#include "simulator/glib_ptr.h"

#include <stdexcept>
#include <string_view>

namespace Simulator {

Variant Body(const Variant& argument)
{
    GVariant* child = argument.Get();
    return Variant(g_variant_new_tuple(&child, 1));
}

Variant EmptyBody()
{
    return Variant(g_variant_new_tuple(nullptr, 0));
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
                                    " cannot be sent on the bus");
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
