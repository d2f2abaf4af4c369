// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/control_client.h"

#include "simulator/bus/bus_connection.h"
#include "simulator/faults/control_contract.h"
#include "simulator/faults/verb_arguments.h"
#include "simulator/options.h"
#include "simulator/output.h"
#include "simulator/print_error.h"
#include "text/printable.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>

namespace Simulator {

namespace {

constexpr const char* help =
    R"(Calls a verb of the emporium-simulator on the session bus.
Usage: emporium-simulator ctl VERB [ARGUMENT...]

Verbs and the types of their arguments (s text, u and i number, b boolean, v any value):
)";

using ControlContract::VerbShape;

void PrintHelp()
{
    std::string text = help;
    for (const VerbShape& verb : ControlContract::allVerbs) {
        text += std::string("  ") + verb.name + " " + verb.arguments + "\n";
    }
    Print(text);
}

const VerbShape& ShapeOf(const std::string& verb)
{
    const auto* const shape =
        std::find_if(std::begin(ControlContract::allVerbs), std::end(ControlContract::allVerbs),
                     [&verb](const VerbShape& other) { return other.name == verb; });
    if (shape == std::end(ControlContract::allVerbs)) {
        throw UsageError(UnknownVerb(verb));
    }
    return *shape;
}

std::string Quoted(const std::string& text)
{
    if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) == FALSE) {
        throw UsageError("not UTF-8 text: " + text);
    }
    return TextPtr(g_variant_print(Variant(g_variant_new_string(text.c_str())).Get(), FALSE)).get();
}

// A value need not be in angle brackets, as the text format of a variant requires.
std::string Boxed(const std::string& text)
{
    return text.starts_with('<') ? text : "<" + text + ">";
}

/// The arguments as one text with commas between them.
std::string Joined(const VerbShape& shape, std::vector<std::string>::const_iterator argument,
                   std::vector<std::string>::const_iterator end)
{
    std::string text;
    const char* type = shape.arguments;
    for (; argument != end; ++argument) {
        const char* next = type;
        if (*type != '\0' && g_variant_type_string_scan(type, nullptr, &next) == FALSE) {
            next = type;
        }
        text += text.empty() ? "" : ", ";
        if (*type == 's') {
            text += Quoted(*argument);
        } else {
            text += *type == 'v' ? Boxed(*argument) : *argument;
        }
        type = next;
    }
    return text;
}

Variant Arguments(const VerbShape& shape, const std::vector<std::string>& arguments)
{
    const auto first = std::next(arguments.begin());
    // The name of an error stands where the bus has its number.
    const bool named = shape.name == std::string_view(ControlContract::Verb::failOperation) &&
                       arguments.size() == 3 && g_ascii_isalpha(arguments[2].front()) != FALSE;
    const std::string text = named ? Joined({shape.name, "ss", ""}, first, arguments.end())
                                   : Joined(shape, first, arguments.end());
    try {
        return ParseArguments(shape.name, text);
    } catch (const std::exception& error) {
        throw UsageError(error.what());
    }
}

void PrintReply(GVariant* reply)
{
    std::string text;
    for (gsize i = 0; i < g_variant_n_children(reply); ++i) {
        const Variant value(g_variant_get_child_value(reply, i));
        const bool isText = g_variant_is_of_type(value.Get(), G_VARIANT_TYPE_STRING) != FALSE;
        const TextPtr printed(isText ? g_variant_dup_string(value.Get(), nullptr)
                                     : g_variant_print(value.Get(), FALSE));
        text += Text::Printable(printed.get(), Text::LettersFor(STDOUT_FILENO)) + '\n';
    }
    Print(text);
}

int Refused(GError* error)
{
    const bool lost = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) != FALSE ||
                      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE;
    const bool absent =
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE;
    const bool usage = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS) != FALSE;
    g_dbus_error_strip_remote_error(error);
    if (absent) {
        throw NoBus("there is no simulator on the bus");
    }
    if (lost) {
        throw NoBus("the simulator has left the bus");
    }
    if (usage) {
        throw UsageError(error->message);
    }
    throw std::runtime_error(error->message);
}

} // namespace

int RunControlClient(const std::vector<std::string>& arguments)
{
    if (arguments.empty()) {
        throw UsageError("ctl needs a verb");
    }
    if (arguments.front() == "--help" || arguments.front() == "-h") {
        PrintHelp();
        return 0;
    }
    const Variant body = Arguments(ShapeOf(arguments.front()), arguments);
    const BusConnection bus({});
    GError* raw = nullptr;
    // Without a time-out: the verbs that wait reply when something happens.
    const Variant reply(g_dbus_connection_call_sync(
        bus.Get(), ControlContract::busName, ControlContract::objectPath,
        ControlContract::interfaceName, arguments.front().c_str(), body.Get(), nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, &raw));
    if (!reply) {
        const std::unique_ptr<GError, Releaser<g_error_free>> error(raw);
        return Refused(error.get());
    }
    PrintReply(reply.Get());
    return 0;
}

} // namespace Simulator
