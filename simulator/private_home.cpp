// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/private_home.h"

namespace Simulator {

namespace {

struct Variable
{
    const char* name;
    const char* directory;
};

constexpr Variable cacheVariables[] = {{"XDG_CACHE_HOME", "cache"}};
constexpr Variable homeVariables[] = {
    {"HOME", "home"},
    {"XDG_CACHE_HOME", "home/.cache"},
    {"XDG_CONFIG_HOME", "home/.config"},
    {"XDG_DATA_HOME", "home/.local/share"},
    {"XDG_STATE_HOME", "home/.local/state"},
    {"XDG_RUNTIME_DIR", "runtime"},
};

template <typename Variables>
Environment Create(const Variables& variables, const std::filesystem::path& directory)
{
    Environment environment;
    for (const Variable& variable : variables) {
        const std::filesystem::path path = directory / variable.directory;
        std::filesystem::create_directories(path);
        // Programs refuse an XDG_RUNTIME_DIR that others can read.
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        environment.emplace_back(variable.name, path);
    }
    return environment;
}

} // namespace

Environment CreateHome(Home home, const std::filesystem::path& directory)
{
    switch (home) {
    case Home::PrivateCache:
        return Create(cacheVariables, directory);
    case Home::Private:
        return Create(homeVariables, directory);
    case Home::User:
        break;
    }
    return {};
}

} // namespace Simulator
