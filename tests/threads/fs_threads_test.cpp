// SPDX-License-Identifier: BSD-3-Clause
#include "several_threads.h"

#include "common/fs/fs.h"
#include "support/temporary_directory.h"

#include <common/error.h>

#include <array>
#include <fstream>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace Common;
using namespace TestSupport;

/// Uses every function that changes or reads entries, below `directory`.
bool UseEveryFunction(const fs::path& directory)
{
    const fs::path tree = directory / "tree";
    const fs::path file = tree / "file";
    CreateDirectories(tree);
    std::ofstream(file) << "content";
    CreateSymlink("file", tree / "link");
    CreateHardlink(file, tree / "second");
    SetPermissions(file, fs::perms::owner_all);
    const bool made = IsDirectory(tree) && IsRegularFile(file) && IsSymlink(tree / "link") &&
                      !IsSocket(file) && !IsEmptyDirectory(tree) &&
                      ReadSymlink(tree / "link") == "file" &&
                      HasPermissions(file, fs::perms::owner_exec);
    Copy(tree, directory / "copy");
    Move(directory / "copy", directory / "moved");
    const bool copied =
        ReadDirectory(directory, Recursive | OrderByTime).size() == 8 && // two trees of four
        ReadSymlink(directory / "moved" / "link") == "file";
    GetExtendedAttributes(file);
    Remove(tree);
    Remove(directory / "moved");
    return made && copied && IsEmptyDirectory(directory) && !Exists(tree);
}

TEST(FsThreads, EachThreadWorksOnItsOwnTree)
{
    const TemporaryDirectory temporary;
    OnSeveralThreads([&](std::size_t number) {
        const fs::path directory = temporary.Path() / std::to_string(number);
        bool good = true;
        for (int round = 0; round < 5; ++round) {
            CreateDirectories(directory);
            good = UseEveryFunction(directory) && good;
        }
        return good;
    });
}

TEST(FsThreads, SeveralThreadsCreateTheSameDirectories)
{
    const TemporaryDirectory temporary;
    for (int round = 0; round < 20; ++round) {
        const fs::path path = temporary.Path() / std::to_string(round) / "a" / "b" / "c";
        OnSeveralThreads([&](std::size_t) {
            CreateDirectories(path);
            return IsDirectory(path);
        });
    }
}

TEST(FsThreads, EachThreadGetsItsOwnFailure)
{
    const TemporaryDirectory temporary;
    OnSeveralThreads([&](std::size_t number) {
        const fs::path missing = temporary.Path() / std::to_string(number);
        try {
            GetExtendedAttributes(missing);
        } catch (const Error& error) {
            return error.what() ==
                   "Couldn't retrieve size of extended attributes: " + missing.string();
        }
        return false;
    });
}

TEST(FsThreads, SeveralThreadsReadTheSamePaths)
{
    const fs::path root = GetRootPath();
    const fs::path temporary = GetTempDirectoryPath();
    OnSeveralThreads([&](std::size_t) {
        bool good = true;
        for (int round = 0; round < 100; ++round) {
            good = good && GetRootPath() == root && GetTempDirectoryPath() == temporary;
        }
        return good;
    });
}

TEST(FsThreads, UniquePathsOfSeveralThreadsDiffer)
{
    constexpr std::size_t pathsPerThread = 200;
    std::array<std::set<fs::path>, severalThreads> paths;
    OnSeveralThreads([&](std::size_t number) {
        while (paths.at(number).size() < pathsPerThread) {
            paths.at(number).insert(MakeUniquePath("%%%%%%%%-%%%%%%%%-%%%%%%%%"));
        }
        return true;
    });
    std::set<fs::path> all;
    for (std::set<fs::path>& some : paths) {
        all.merge(some);
    }
    EXPECT_EQ(all.size(), severalThreads * pathsPerThread);
}

} // namespace
