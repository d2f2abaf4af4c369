// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/scenario.h"

#include "simulator/bus/message_body.h"
#include "simulator/faults/control_contract.h"
#include "simulator/faults/verb_arguments.h"
#include "simulator/files/input_error.h"
#include "simulator/files/text_file.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Simulator {

namespace {

constexpr std::size_t largestScenario = 64U << 20U;
constexpr const char* waitVerb = "Wait";
constexpr const char* blanks = " \t\r";

Variant ParseMilliseconds(const std::string& text)
{
    RequireCodePoints(text);
    ErrorSlot error;
    Variant milliseconds(g_variant_parse(G_VARIANT_TYPE("(u)"), ("(" + text + ",)").c_str(),
                                         nullptr, nullptr, &error));
    if (!milliseconds) {
        throw std::invalid_argument("Wait takes milliseconds (" + error.Message() + ")");
    }
    return milliseconds;
}

Variant ParseAndCheck(const std::string& verb, const std::string& text)
{
    if (verb == waitVerb) {
        return ParseMilliseconds(text);
    }
    Variant arguments = ParseArguments(verb, text);
    CheckArguments(verb, arguments.Get());
    return arguments;
}

} // namespace

void Scenario::AddFile(const std::string& path)
{
    std::istringstream content(ReadStream(path, largestScenario));
    std::string text;
    for (std::size_t line = 1; std::getline(content, text); ++line) {
        Add(path + ":" + std::to_string(line), text);
    }
}

void Scenario::AddVerb(const std::string& text)
{
    Add("--do", text);
}

void Scenario::Add(const std::string& place, const std::string& text)
{
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos || text[begin] == '#') {
        return;
    }
    const auto end = std::min(text.find_first_of(blanks, begin), text.size());
    const std::string verb = text.substr(begin, end - begin);
    try {
        m_steps.push_back({place, verb, ParseAndCheck(verb, text.substr(end))});
    } catch (const std::exception& error) {
        throw InputError(place, 0, error.what());
    }
}

void Scenario::RequireNoReplay() const
{
    for (const ScenarioStep& step : m_steps) {
        if (step.verb == ControlContract::Verb::startReplay) {
            throw InputError(step.place, 0,
                             "StartReplay needs a recording: --replay FILE --paused");
        }
    }
}

void Scenario::Run(Actions actions)
{
    m_actions = std::move(actions);
    Continue();
}

void Scenario::Continue()
{
    m_waits = false;
    while (!m_waits && m_next < m_steps.size()) {
        const ScenarioStep& step = m_steps[m_next++];
        try {
            Execute(step);
        } catch (const std::exception& error) {
            m_next = m_steps.size();
            m_actions.failed(InputError(step.place, 0, error.what()).what());
        }
    }
}

void Scenario::Execute(const ScenarioStep& step)
{
    if (step.verb == waitVerb) {
        guint32 milliseconds = 0;
        g_variant_get(step.arguments.Get(), "(u)", &milliseconds);
        m_waits = true;
        m_timer.Start(milliseconds, [this] { Continue(); });
        return;
    }
    Progress::Condition condition = m_actions.conditionOf(step.verb, step.arguments.Get());
    if (!condition) {
        m_actions.perform(step.verb, step.arguments.Get());
    } else if (!condition()) {
        m_waits = true;
        m_actions.waitFor(std::move(condition), [this] { Continue(); });
    }
}

} // namespace Simulator
