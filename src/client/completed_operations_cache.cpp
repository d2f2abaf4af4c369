// SPDX-License-Identifier: BSD-3-Clause
#include "client/completed_operations_cache.h"

#include "common/fs/file_name.h"
#include "common/log/log_message.h"

#include <appdir.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Emporium::CompletedOperationsCache {

namespace fs = std::filesystem;
using Common::LogLevel;
using Common::LogMessage;

namespace {

struct TimestampedOperationPath
{
    fs::file_time_type time;
    fs::path path;
};

fs::path CacheDirectory()
{
    constexpr auto applicationCache = static_cast<AppDir::PathType>(2);
    return fs::path(AppDir::getPath(applicationCache)) / "emporium-api" / "completed-operations";
}

/// All entries, of any type: reading reports those that hold no operation.
std::vector<TimestampedOperationPath> ListByTime(const fs::path& directory)
{
    std::vector<TimestampedOperationPath> entries;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        entries.push_back({entry.last_write_time(), entry.path()});
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.time < right.time; });
    return entries;
}

std::vector<Operation> ReadEntries(const std::vector<TimestampedOperationPath>& entries)
{
    std::vector<Operation> operations;
    operations.reserve(entries.size());
    for (const TimestampedOperationPath& entry : entries) {
        const Result<Operation> operation = Operation::FromFile(entry.path.string());
        if (operation) {
            operations.push_back(operation.Get());
        } else {
            LogMessage(LogLevel::Warning) << operation.GetError();
        }
    }
    return operations;
}

void RemoveDirectory(const fs::path& directory)
{
    try {
        fs::remove_all(directory);
    } catch (const std::exception& error) {
        LogMessage(LogLevel::Warning)
            << "Couldn't remove completed operations cache directory (" << error.what() << ")";
    }
}

/// Anything that exists at the path is used as it is, even a regular file.
void EnsureExists(const fs::path& directory)
{
    const fs::file_type type = fs::status(directory).type();
    if (type == fs::file_type::not_found || type == fs::file_type::unknown) {
        fs::create_directories(directory);
    }
}

Result<void> Save(const Operation& operation, const fs::path& directory)
{
    const std::string& uuid = operation.GetUUID(); // any text, as the daemon sent it
    if (!Common::IsPlainFileName(uuid)) {
        return ErrorResult("Couldn't open " + directory.string() + "/" + uuid +
                           " to save operation");
    }
    return operation.SaveToFile((directory / uuid).string());
}

using FailuresByUUID = std::unordered_map<std::string_view, std::string>;

/// Writes each file once, with the last operation of its UUID: some file systems flush a file to the
/// disk when it is written a second time.
FailuresByUUID SaveLastOfEach(const std::vector<Operation>& operations, const fs::path& directory)
{
    std::unordered_map<std::string_view, const Operation*> last;
    for (const Operation& operation : operations) {
        last[operation.GetUUID()] = &operation;
    }
    FailuresByUUID failures;
    for (const Operation& operation : operations) {
        if (last[operation.GetUUID()] != &operation) {
            continue;
        }
        const Result<void> result = Save(operation, directory);
        if (!result) {
            failures.emplace(operation.GetUUID(), result.GetError());
        }
    }
    return failures;
}

/// Logs one line for each operation that is not stored, even if several share a file.
void LogFailures(const std::vector<Operation>& operations, const FailuresByUUID& failures)
{
    for (const Operation& operation : operations) {
        const auto failure = failures.find(operation.GetUUID());
        if (failure != failures.end()) {
            LogMessage(LogLevel::Warning) << failure->second;
        }
    }
}

} // namespace

std::vector<Operation> ReadAndRemove()
{
    fs::path directory;
    std::vector<TimestampedOperationPath> entries;
    try {
        directory = CacheDirectory();
        if (!fs::is_directory(directory)) {
            return {};
        }
        entries = ListByTime(directory);
    } catch (const std::exception& error) {
        LogMessage(LogLevel::Warning)
            << "Couldn't read cached completed operations (" << error.what() << ")";
        return {};
    }
    std::vector<Operation> operations = ReadEntries(entries);
    RemoveDirectory(directory);
    return operations;
}

void Write(const std::vector<Operation>& operations)
{
    fs::path directory;
    try {
        directory = CacheDirectory();
        EnsureExists(directory);
    } catch (const std::exception& error) {
        LogMessage(LogLevel::Warning)
            << "Couldn't create cache directory to store completed operations (" << error.what()
            << ")";
        return;
    }
    LogFailures(operations, SaveLastOfEach(operations, directory));
}

} // namespace Emporium::CompletedOperationsCache
