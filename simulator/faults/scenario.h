// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"
#include "simulator/daemon/progress.h"
#include "simulator/timer.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Simulator {

/// One verb of the control interface, or "Wait milliseconds".
struct ScenarioStep
{
    std::string place; ///< where it is written
    std::string verb;
    Variant arguments;
};

/// Executes verbs one after another: from a file with one verb on each line, its arguments in GVariant
/// text format with commas between them; "#" begins a comment line.
class Scenario
{
public:
    struct Actions
    {
        std::function<void(const std::string& verb, GVariant* arguments)> perform;
        /// Returns what a verb waits for; nothing if it is not one that waits.
        std::function<Progress::Condition(const std::string& verb, GVariant* arguments)>
            conditionOf;
        std::function<void(Progress::Condition, Progress::Continuation)> waitFor;
        /// Receives the error of a verb that fails; those after it are skipped.
        std::function<void(const std::string& message)> failed;
    };

    /// Reads and checks all lines of the file.
    /// @throws InputError naming the line; std::system_error when the file cannot be read
    void AddFile(const std::string& path);
    /// @param text a verb and its arguments
    /// @throws InputError
    void AddVerb(const std::string& text);

    /// Throws if a verb needs a recording.
    void RequireNoReplay() const;

    /// Executes the verbs up to the first that waits, and the others when it has ended.
    void Run(Actions actions);

private:
    void Add(const std::string& place, const std::string& text);
    void Continue();
    void Execute(const ScenarioStep& step);

    std::vector<ScenarioStep> m_steps;
    std::size_t m_next = 0;
    bool m_waits = false;
    Actions m_actions;
    Timer m_timer;
};

} // namespace Simulator
