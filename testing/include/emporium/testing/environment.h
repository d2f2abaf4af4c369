// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Emporium::Testing {

/// Sets environment variables of the process, and restores their former values on destruction.
///
/// Not thread-safe: change the environment before the test starts threads.
///
///     Emporium::Testing::Environment environment;
///     environment.Set("LC_ALL", "C");
class Environment
{
public:
    Environment() = default;
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment();

    /// Sets a variable. The values are in the encoding of the environment.
    /// @throws Error if the name is empty or contains "="
    void Set(const std::string& name, const std::string& value);

    /// Removes a variable.
    /// @throws Error like Set()
    void Unset(const std::string& name);

private:
    void Change(const std::string& name, const char* value);

    std::vector<std::pair<std::string, std::optional<std::string>>> m_former;
};

} // namespace Emporium::Testing
