// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"
#include "simulator/timer.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Simulator {

/// One line of a scenario file: a verb of the control interface, or "Wait milliseconds".
struct ScenarioStep
{
    std::size_t line;
    std::string verb;
    Variant arguments;
};

/// A scenario file: one verb per line, its arguments in GVariant text format with commas between
/// them; "#" begins a comment line.
class Scenario
{
public:
    using Perform = std::function<void(const std::string& verb, GVariant* arguments)>;
    using Failed = std::function<void(const std::string& message)>;

    /// @throws InputError naming the line; std::system_error when the file cannot be read
    explicit Scenario(const std::string& path);

    /// Executes the lines up to the next Wait; a timer executes those after it.
    /// @param failed receives the error of a line that fails; the lines after it are skipped
    void Run(Perform perform, Failed failed);

private:
    void ParseLine(const std::string& text, std::size_t line);
    void Continue();

    std::string m_path;
    std::vector<ScenarioStep> m_steps;
    std::size_t m_next = 0;
    Perform m_perform;
    Failed m_failed;
    Timer m_timer;
};

} // namespace Simulator
