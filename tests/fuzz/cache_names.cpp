// SPDX-License-Identifier: BSD-3-Clause
//
// Application IDs and UUIDs of any content, which become names of directories and files. Nothing
// outside the cache directory changes, and an operation whose UUID is a valid file name is read back.
#include "client/completed_operations_cache.h"
#include "fuzz/input.h"
#include "fuzz/operations.h"
#include "support/temporary_directory.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// The cache's home is deep inside the directory, so that a name that leads out of it is found there.
struct Place
{
    Place()
    {
        fs::create_directories(home);
        ::unsetenv("HOME");
        ::setenv("XDG_CACHE_HOME", home.c_str(), 1);
        // Log lines would hide the fuzzer's own.
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    }

    void Clear() const
    {
        for (const auto& entry : fs::directory_iterator(home)) {
            fs::remove_all(entry);
        }
    }

    /// True for a file of the cache, the directories around it, and those around its home.
    bool IsExpected(const fs::directory_entry& entry) const
    {
        const fs::path fromHome = entry.path().lexically_relative(home);
        const bool isAroundHome = fromHome.filename() == ".." || fromHome == ".";
        const bool isInside = *fromHome.begin() != "..";
        constexpr int depthOfFiles = 4; // NAME/emporium-api/completed-operations/UUID
        const auto depth = std::distance(fromHome.begin(), fromHome.end());
        return isAroundHome || (isInside && (entry.is_directory() || depth == depthOfFiles));
    }

    bool HasOnlyExpected() const
    {
        const fs::recursive_directory_iterator entries(directory.Path());
        return std::all_of(begin(entries), end(entries),
                           [this](const auto& entry) { return IsExpected(entry); });
    }

    TestSupport::TemporaryDirectory directory;
    fs::path home = directory.Path() / "1/2/3/4/5/6/7/8";
};

bool IsPossibleName(const std::string& name)
{
    return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Place place;
    place.Clear();
    Fuzz::Input input(data, size);
    const std::string applicationID = input.Text();
    ::setenv("VEYRA_APP_ID", applicationID.c_str(), 1);

    std::vector<Emporium::Operation> operations;
    std::map<std::string, Emporium::Operation> expected;
    while (!input.IsEmpty() && operations.size() < 8) {
        operations.push_back(Fuzz::TakeOperation(input));
        if (IsPossibleName(operations.back().GetUUID())) {
            expected.insert_or_assign(operations.back().GetUUID(), operations.back());
        }
    }
    Emporium::CompletedOperationsCache::Write(operations);
    Fuzz::Require(place.HasOnlyExpected(), "files are written into the cache directory only");

    const std::vector<Emporium::Operation> read =
        Emporium::CompletedOperationsCache::ReadAndRemove();
    Fuzz::Require(read.size() == expected.size(), "each possible name is one file");
    for (const Emporium::Operation& operation : read) {
        const auto found = expected.find(operation.GetUUID());
        Fuzz::Require(found != expected.end() && Fuzz::AreEqual(found->second, operation),
                      "the last operation of each name is read back");
    }
    return 0;
}
