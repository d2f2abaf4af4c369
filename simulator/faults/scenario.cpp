// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/scenario.h"

#include "simulator/bus/message_body.h"
#include "simulator/files/input_error.h"
#include "simulator/files/text_file.h"
#include "simulator/glib_ptr.h"
#include "simulator/introspection.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace Simulator {

namespace {

constexpr std::size_t largestScenario = 64U << 20U;
constexpr const char* waitVerb = "Wait";

struct ArgumentTypes
{
    std::string tuple;
    std::size_t count;
};

std::optional<ArgumentTypes> TypesOf(const std::string& verb)
{
    if (verb == waitVerb) {
        return ArgumentTypes{"(u)", 1};
    }
    static const NodeInfoPtr node(g_dbus_node_info_new_for_xml(controlIntrospection, nullptr));
    const GDBusMethodInfo* method =
        g_dbus_interface_info_lookup_method(node->interfaces[0], verb.c_str());
    if (method == nullptr) {
        return std::nullopt;
    }
    ArgumentTypes types = {"(", 0};
    for (GDBusArgInfo** argument = method->in_args; argument != nullptr && *argument != nullptr;
         ++argument, ++types.count) {
        types.tuple += (*argument)->signature;
    }
    types.tuple += ")";
    return types;
}

Variant ParseArguments(const std::string& verb, const ArgumentTypes& types, const std::string& text)
{
    RequireCodePoints(text);
    const char* comma = types.count == 1 ? "," : "";
    const std::string tuple = "(" + text + comma + ")";
    const std::unique_ptr<GVariantType, Releaser<g_variant_type_free>> type(
        g_variant_type_new(types.tuple.c_str()));
    ErrorSlot error;
    Variant arguments(g_variant_parse(type.get(), tuple.c_str(), nullptr, nullptr, &error));
    if (!arguments) {
        throw std::invalid_argument(verb + " takes arguments of the types " + types.tuple + " (" +
                                    error.Message() + ")");
    }
    RequireTransportable(arguments);
    return arguments;
}

} // namespace

Scenario::Scenario(const std::string& path) : m_path(path)
{
    std::istringstream content(ReadTextFile(path, largestScenario));
    std::string text;
    for (std::size_t line = 1; std::getline(content, text); ++line) {
        ParseLine(text, line);
    }
}

void Scenario::ParseLine(const std::string& text, std::size_t line)
{
    constexpr const char* blanks = " \t\r";
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos || text[begin] == '#') {
        return;
    }
    const auto end = std::min(text.find_first_of(blanks, begin), text.size());
    const std::string verb = text.substr(begin, end - begin);
    const auto types = TypesOf(verb);
    if (!types) {
        throw InputError(m_path, line, "unknown verb " + verb);
    }
    try {
        m_steps.push_back({line, verb, ParseArguments(verb, *types, text.substr(end))});
    } catch (const std::invalid_argument& error) {
        throw InputError(m_path, line, error.what());
    }
}

void Scenario::Run(Perform perform, Failed failed)
{
    m_perform = std::move(perform);
    m_failed = std::move(failed);
    Continue();
}

void Scenario::Continue()
{
    while (m_next < m_steps.size()) {
        const ScenarioStep& step = m_steps[m_next++];
        if (step.verb == waitVerb) {
            guint32 milliseconds = 0;
            g_variant_get(step.arguments.Get(), "(u)", &milliseconds);
            m_timer.Start(milliseconds, [this] { Continue(); });
            return;
        }
        try {
            m_perform(step.verb, step.arguments.Get());
        } catch (const std::exception& error) {
            m_next = m_steps.size();
            m_failed(InputError(m_path, step.line, error.what()).what());
        }
    }
}

} // namespace Simulator
