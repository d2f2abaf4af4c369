// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/verb_arguments.h"

#include "simulator/bus/message_body.h"
#include "simulator/faults/control_contract.h"
#include "simulator/glib_ptr.h"
#include "simulator/introspection.h"
#include "text/suggestion.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Simulator {

namespace {

namespace Verb = ControlContract::Verb;
using ControlContract::VerbShape;

bool IsNumber(const std::string& text)
{
    return !text.empty() && text.size() < 10 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

const Common::ErrorTableRow& RowOf(const std::string& nameOrNumber)
{
    const int number = IsNumber(nameOrNumber) ? std::stoi(nameOrNumber) : -1;
    const auto* const row =
        std::find_if(Common::errorTable.begin(), Common::errorTable.end(), [&](const auto& other) {
            return other.ShortName() == nameOrNumber || static_cast<int>(other.code) == number;
        });
    if (row == Common::errorTable.end()) {
        throw BusError::InvalidArguments("no such error: " + nameOrNumber);
    }
    return *row;
}

Variant FailCallWithNumber(GVariant* arguments)
{
    const char* method = nullptr;
    const char* message = nullptr;
    unsigned nth = 0;
    std::int32_t number = 0;
    g_variant_get(arguments, "(&sui&s)", &method, &nth, &number, &message);
    return Variant(g_variant_new("(suss)", method, nth, std::to_string(number).c_str(), message));
}

Variant FailOperationWithName(GVariant* arguments)
{
    const char* package = nullptr;
    const char* name = nullptr;
    g_variant_get(arguments, "(&s&s)", &package, &name);
    const auto code = static_cast<std::int32_t>(RowOf(name).code);
    return Variant(g_variant_new("(si)", package, code));
}

Variant WaitForOneCall(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    return Variant(g_variant_new("(su)", method, 1U));
}

/// Other arguments that a verb accepts in text, and what gives those of the bus.
struct OtherForm
{
    std::string_view verb;
    const char* types;
    Variant (*convert)(GVariant* arguments);
};

constexpr OtherForm otherForms[] = {
    {Verb::failCall, "suis", FailCallWithNumber},
    {Verb::failOperation, "ss", FailOperationWithName},
    {Verb::waitForCall, "s", WaitForOneCall},
};

Variant Parse(const char* types, const std::string& text, ErrorSlot& error)
{
    const std::unique_ptr<GVariantType, Releaser<g_variant_type_free>> type(
        g_variant_type_new(("(" + std::string(types) + ")").c_str()));
    const char* comma = g_variant_type_n_items(type.get()) == 1 ? "," : "";
    return Variant(
        g_variant_parse(type.get(), ("(" + text + comma + ")").c_str(), nullptr, nullptr, &error));
}

void RequireMethod(const char* method)
{
    static const NodeInfoPtr node(g_dbus_node_info_new_for_xml(daemonIntrospection, nullptr));
    if (g_dbus_interface_info_lookup_method(node->interfaces[0], method) == nullptr) {
        throw BusError::InvalidArguments(std::string("the daemon has no method ") + method);
    }
}

void RequireSignal(const char* name)
{
    if (g_dbus_is_member_name(name) == FALSE) {
        throw BusError::InvalidArguments(std::string("not a signal: ") + name);
    }
}

void RequireObject(const char* path)
{
    if (g_variant_is_object_path(path) == FALSE) {
        throw BusError::InvalidArguments(std::string("not an object path: ") + path);
    }
}

void RequireInterface(const char* name)
{
    if (g_dbus_is_interface_name(name) == FALSE) {
        throw BusError::InvalidArguments(std::string("not an interface: ") + name);
    }
}

void RequireBody(const char* text)
{
    try {
        ParseBody(text);
    } catch (const std::invalid_argument& error) {
        throw BusError::InvalidArguments(error.what());
    }
}

void RequirePositive(guint32 number)
{
    if (number == 0) {
        throw BusError::InvalidArguments("the first call is number 1");
    }
}

std::string TextArgument(GVariant* arguments, gsize index)
{
    const Variant argument(g_variant_get_child_value(arguments, index));
    return g_variant_get_string(argument.Get(), nullptr);
}

guint32 NumberArgument(GVariant* arguments, gsize index)
{
    const Variant argument(g_variant_get_child_value(arguments, index));
    return g_variant_get_uint32(argument.Get());
}

/// What the arguments of a verb are, by their index: text that must be of one kind.
struct TextRule
{
    std::string_view verb;
    gsize index;
    void (*require)(const char* text);
};

constexpr TextRule textRules[] = {
    {Verb::failCall, 0, RequireMethod},
    {Verb::delayReply, 0, RequireMethod},
    {Verb::setReply, 0, RequireMethod},
    {Verb::setReply, 1, RequireBody},
    {Verb::queueSignal, 0, RequireMethod},
    {Verb::queueSignal, 1, RequireSignal},
    {Verb::queueSignal, 2, RequireBody},
    {Verb::exitDuring, 0, RequireMethod},
    {Verb::calls, 0, RequireMethod},
    {Verb::emitSignal, 0, RequireSignal},
    {Verb::emitSignal, 1, RequireBody},
    {Verb::emitSignalFrom, 0, RequireObject},
    {Verb::emitSignalFrom, 1, RequireInterface},
    {Verb::emitSignalFrom, 2, RequireSignal},
    {Verb::emitSignalFrom, 3, RequireBody},
    {Verb::waitForCall, 0, RequireMethod},
};

void RequireErrorCode(GVariant* arguments)
{
    const char* package = nullptr;
    std::int32_t code = 0;
    g_variant_get(arguments, "(&si)", &package, &code);
    if (code == 0) {
        throw BusError::InvalidArguments("0 is not the code of an error");
    }
}

} // namespace

std::string UnknownVerb(const std::string& verb)
{
    std::vector<std::string> names = {"Wait"}; // of scenarios
    for (const VerbShape& shape : ControlContract::allVerbs) {
        names.emplace_back(shape.name);
    }
    return "unknown verb " + verb + Text::DidYouMean(verb, names);
}

Variant ParseArguments(const std::string& verb, const std::string& text)
{
    RequireCodePoints(text);
    const auto* const shape =
        std::find_if(std::begin(ControlContract::allVerbs), std::end(ControlContract::allVerbs),
                     [&verb](const VerbShape& other) { return other.name == verb; });
    if (shape == std::end(ControlContract::allVerbs)) {
        throw std::invalid_argument(UnknownVerb(verb));
    }
    ErrorSlot error;
    if (Variant arguments = Parse(shape->arguments, text, error)) {
        RequireTransportable(arguments);
        return arguments;
    }
    for (const OtherForm& form : otherForms) {
        ErrorSlot ignored;
        if (form.verb == verb) {
            if (const Variant arguments = Parse(form.types, text, ignored)) {
                return form.convert(arguments.Get());
            }
        }
    }
    throw std::invalid_argument(verb + " takes arguments of the types (" + shape->arguments +
                                ") (" + error.Message() + ")");
}

void CheckArguments(const std::string& verb, GVariant* arguments)
{
    for (const TextRule& rule : textRules) {
        if (rule.verb == verb) {
            rule.require(TextArgument(arguments, rule.index).c_str());
        }
    }
    if (verb == Verb::failCall) {
        RequirePositive(NumberArgument(arguments, 1));
        ErrorOf(TextArgument(arguments, 2), TextArgument(arguments, 3));
    } else if (verb == Verb::waitForCall) {
        RequirePositive(NumberArgument(arguments, 1));
    } else if (verb == Verb::failOperation) {
        RequireErrorCode(arguments);
    }
}

BusError ErrorOf(const std::string& name, const std::string& message)
{
    // A name without dots is the short name of an error of the error model.
    const bool isShort = name.find('.') == std::string::npos;
    const auto& row = isShort ? RowOf(name) : Common::FindError(name);
    const std::string whole = isShort ? std::string(row.dbusName) : name;
    if (g_dbus_is_interface_name(whole.c_str()) == FALSE) {
        throw BusError::InvalidArguments("not an error name: " + name);
    }
    return {whole, message.empty() ? std::string(row.message) : message};
}

} // namespace Simulator
