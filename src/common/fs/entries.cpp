// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/entries.h"

#include "common/fs/entry_tests.h"
#include "common/fs/failure.h"

#include <algorithm>
#include <string>

namespace Common {

namespace fs = std::filesystem;

namespace {

struct TimestampedPath
{
    fs::file_time_type time;
    fs::path path;
};

template <typename Iterator>
std::vector<TimestampedPath> List(const fs::path& path)
{
    std::vector<TimestampedPath> entries;
    for (const fs::directory_entry& entry : Iterator(path)) {
        entries.push_back({entry.last_write_time(), entry.path()});
    }
    return entries;
}

template <typename Make>
void CreateLink(const char* kind, const fs::path& target, const fs::path& link, Make make)
{
    std::string message = std::string("Couldn't create ") + kind + " " + link.native() +
                          " pointing to " + target.native();
    if (Exists(link)) {
        throw FilesystemError(message + " (path already exists)");
    }
    Wrapped(
        [&] {
            fs::create_directories(link.parent_path());
            make(target, link);
        },
        [&] { return message; });
}

} // namespace

void Remove(const fs::path& path)
{
    Wrapped([&] { fs::remove_all(path); },
            [&] { return "Couldn't remove filesystem entry: " + path.native(); });
}

void CreateDirectories(const fs::path& path)
{
    Wrapped([&] { fs::create_directories(path); },
            [&] { return "Couldn't create directory: " + path.native(); });
}

fs::path ReadSymlink(const fs::path& path)
{
    return Wrapped([&] { return fs::read_symlink(path); },
                   [&] { return "Couldn't read symlink: " + path.native(); });
}

std::vector<fs::path> ReadDirectory(const fs::path& path, unsigned flags)
{
    std::vector<TimestampedPath> entries = Wrapped(
        [&] {
            return (flags & Recursive) != 0 ? List<fs::recursive_directory_iterator>(path)
                                            : List<fs::directory_iterator>(path);
        },
        [&] { return "Couldn't read directory: " + path.native(); });
    if ((flags & OrderByTime) != 0) {
        std::sort(entries.begin(), entries.end(),
                  [](const auto& left, const auto& right) { return left.time < right.time; });
    }
    std::vector<fs::path> paths;
    paths.reserve(entries.size());
    for (TimestampedPath& entry : entries) {
        paths.push_back(std::move(entry.path));
    }
    return paths;
}

void Move(const fs::path& from, const fs::path& to)
{
    Wrapped(
        [&] {
            fs::create_directories(to.parent_path());
            fs::rename(from, to);
        },
        [&] { return "Couldn't move " + from.native() + " to " + to.native(); });
}

void CreateSymlink(const fs::path& target, const fs::path& link)
{
    CreateLink("symlink", target, link,
               [](const fs::path& text, const fs::path& path) { fs::create_symlink(text, path); });
}

void CreateHardlink(const fs::path& target, const fs::path& link)
{
    CreateLink("hardlink", target, link, [](const fs::path& existing, const fs::path& path) {
        fs::create_hard_link(existing, path);
    });
}

} // namespace Common
