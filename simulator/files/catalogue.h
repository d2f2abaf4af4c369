// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/wire_records.h"

#include <string>
#include <vector>

namespace Simulator {

/// The daemon's properties: what it reports in GetAllProperties.
struct Catalogue
{
    std::string architecture;
    std::string version;
    std::vector<Package> packages;
    std::vector<Operation> active;
    std::vector<Operation> completed;
};

Catalogue BuiltInCatalogue();

/// Generates a catalogue for tests of scale: this many packages, each with this many dictionary entries.
Catalogue GeneratedCatalogue(unsigned packages, unsigned dictionaryEntries);

/// @throws InputError naming the line; std::system_error when the file cannot be read.
Catalogue ReadCatalogue(const std::string& path);

/// The text form of a catalogue. An active operation is written as a failed one: no later run
/// continues it.
std::string FormatCatalogue(const Catalogue& catalogue);

} // namespace Simulator
