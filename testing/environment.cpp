// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/testing/environment.h>
#include <emporium/testing/error.h>

#include <cstdlib>
#include <stdlib.h>

namespace Emporium::Testing {

namespace {

int Assign(const std::string& name, const char* value)
{
    return value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
}

} // namespace

void Environment::Change(const std::string& name, const char* value)
{
    const char* const former = std::getenv(name.c_str());
    m_former.emplace_back(name,
                          former != nullptr ? std::optional<std::string>(former) : std::nullopt);
    if (Assign(name, value) != 0) {
        m_former.pop_back();
        throw Error("not the name of an environment variable: '" + name + "'");
    }
}

void Environment::Set(const std::string& name, const std::string& value)
{
    Change(name, value.c_str());
}

void Environment::Unset(const std::string& name)
{
    Change(name, nullptr);
}

Environment::~Environment()
{
    // In reverse order: a variable may have been changed more than once.
    for (auto variable = m_former.rbegin(); variable != m_former.rend(); ++variable) {
        const auto& [name, value] = *variable;
        Assign(name, value ? value->c_str() : nullptr);
    }
}

} // namespace Emporium::Testing
