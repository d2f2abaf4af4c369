// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/daemon.h"
#include "simulator/package_file.h"

#include <optional>
#include <string>
#include <vector>

namespace Simulator {

struct Options
{
    Pace pace;
    std::optional<unsigned> madeUpPackages;
    unsigned dictionaryEntries = 0;
    bool privateBus = false;
    std::vector<std::string> command; ///< To be run on the private bus.
    std::string packagePath;          ///< Of the package file to be made, or empty.
    PackageFile package;
};

/// Reads the command line. Throws std::invalid_argument with a message for the user. `--help` is
/// answered here and ends the process.
Options ParseOptions(int argc, char** argv);

} // namespace Simulator
