// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/daemon/operation_queue.h"
#include "simulator/files/package_file.h"
#include "simulator/private_home.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Simulator {

class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The options of the command line.
struct Options
{
    Pace pace;
    std::string catalogue;
    std::string state;
    std::string scenario;
    std::vector<std::string> verbs; ///< before the scenario
    std::string replay;
    double speed = 1.0;
    bool paused = false;
    bool check = false;
    bool verbose = false;
    std::optional<unsigned> packages;
    unsigned dictionaryEntries = 0;
    bool privateBus = false;
    Home home = Home::PrivateCache;
    std::vector<std::string> command;
    std::string makePackage;
    PackageFile package;
};

/// Returns the options, or nothing after printing the help or the version.
/// @param arguments without the program's name
/// @throws UsageError
std::optional<Options> ParseOptions(const std::vector<std::string>& arguments);

} // namespace Simulator
