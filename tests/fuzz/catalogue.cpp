// SPDX-License-Identifier: BSD-3-Clause
//
// A catalogue of any content. What is read can be sent, and saving it changes it at most once: values
// that the file format cannot express are left out.
#include "simulator/files/catalogue.h"

#include "fuzz/simulator_file.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace {

/// A dictionary has no order, so its lines have none either.
std::vector<std::string> SortedLines(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto catalogue = Fuzz::ReadUserFile(data, size, Simulator::ReadCatalogue);
    if (!catalogue) {
        return 0;
    }
    for (const Simulator::Package& package : catalogue->packages) {
        Fuzz::RequireSendableRecord(package);
    }
    for (const Simulator::Operation& operation : catalogue->completed) {
        Fuzz::RequireSendableRecord(operation);
    }
    static const Fuzz::InputFile saved;
    const std::string text = Simulator::FormatCatalogue(*catalogue);
    saved.Write(text);
    const Simulator::Catalogue again = Simulator::ReadCatalogue(saved.Path());
    Fuzz::Require(again.packages.size() == catalogue->packages.size(), "no package is lost");
    Fuzz::Require(SortedLines(Simulator::FormatCatalogue(again)) == SortedLines(text),
                  "a saved catalogue is read as it is");
    return 0;
}
