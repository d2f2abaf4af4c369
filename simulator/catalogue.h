// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "records.h"

#include <string>
#include <vector>

namespace Simulator {

/// What the daemon reports about itself.
struct Catalogue
{
    std::string architecture;
    std::string version;
    std::vector<Package> packages;
    std::vector<Operation> active;
    std::vector<Operation> completed;
};

Catalogue BuiltInCatalogue();

/// A made-up catalogue for tests of scale: so many packages, each with so many dictionary entries.
Catalogue MadeUpCatalogue(unsigned packages, unsigned dictionaryEntries);

/// @throws InputError naming the line; std::system_error when the file cannot be read.
Catalogue ReadCatalogue(const std::string& path);

/// The file form of a catalogue. An operation under way is written as one that failed, because
/// that is what it is when the program that reads the text finds nobody working on it.
std::string FormatCatalogue(const Catalogue& catalogue);

} // namespace Simulator
