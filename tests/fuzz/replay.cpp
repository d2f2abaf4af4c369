// SPDX-License-Identifier: BSD-3-Clause
//
// usage: fuzz-NAME DIRECTORY
//
// Feeds each file of the directory to the fuzz target. Fails if there is none.
#include "fuzz/input.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace {

void Replay(const std::filesystem::path& path)
{
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

} // namespace

int main(int argc, char** argv)
{
    Fuzz::Require(argc == 2, "usage: fuzz-NAME DIRECTORY");
    std::error_code failure;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], failure)) {
        Replay(entry.path());
        ++count;
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
