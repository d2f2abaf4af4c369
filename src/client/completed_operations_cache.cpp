// SPDX-License-Identifier: BSD-3-Clause
#include "client/completed_operations_cache.h"

#include "client/private_directory.h"
#include "common/fs/directory_names.h"
#include "common/fs/file_name.h"
#include "common/fs/standard_descriptors.h"
#include "common/log/log_message.h"
#include "model/operation_file.h"

#include <appdir.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <unordered_map>
#include <utility>

namespace Emporium::CompletedOperationsCache {

namespace fs = std::filesystem;
using Common::LogLevel;
using Common::LogMessage;

namespace {

constexpr std::string_view reading = "reading";
constexpr std::string_view writing = "writing";

struct TimestampedOperationPath
{
    fs::file_time_type time;
    fs::path path;
};

struct TimestampedOperation
{
    fs::file_time_type time;
    Operation operation;
};

fs::path CacheDirectory()
{
    constexpr auto applicationCache = static_cast<AppDir::PathType>(2);
    return fs::path(AppDir::getPath(applicationCache)) / "emporium-api" / "completed-operations";
}

/// Replaces the path of a private directory: log lines name the cache directory and its files.
std::string WithPath(std::string text, const fs::path& actual, const fs::path& shown)
{
    const std::string& from = actual.native();
    const std::string& to = shown.native();
    for (std::size_t place = text.find(from); place != std::string::npos && from != to;
         place = text.find(from, place + to.size())) {
        text.replace(place, from.size(), to);
    }
    return text;
}

/// The operations that were read. Allocates the result in advance, because nothing may fail once the
/// files are removed.
class Found
{
public:
    void Add(const std::vector<TimestampedOperation>& operations)
    {
        m_operations.reserve(m_entries.size() + operations.size());
        m_entries.insert(m_entries.end(), operations.begin(), operations.end());
    }

    std::vector<Operation> InOrderOfTime()
    {
        std::sort(m_entries.begin(), m_entries.end(),
                  [](const auto& left, const auto& right) { return left.time < right.time; });
        for (const TimestampedOperation& entry : m_entries) {
            m_operations.push_back(entry.operation);
        }
        return std::move(m_operations);
    }

private:
    std::vector<TimestampedOperation> m_entries;
    std::vector<Operation> m_operations;
};

/// Reads a directory with the cache's files, and later removes the files that it has read.
///
/// Another process that opened the directory under its former name may still add files. So only the
/// listed files are removed, and a directory that is not empty afterwards is listed again.
class Reader
{
public:
    Reader(fs::path actual, const fs::path& shown) : m_actual(std::move(actual)), m_shown(shown) {}

    /// Returns false, and logs the reason, if nothing is read.
    bool Read(Found& found)
    {
        try {
            m_listed = ReadListed(found);
            return true;
        } catch (const std::exception& error) {
            LogMessage(LogLevel::Warning) << "Couldn't read cached completed operations ("
                                          << WithPath(error.what(), m_actual, m_shown) << ")";
            return false;
        }
    }

    /// Removes the files that were read; reads and removes those that were added since. Returns false,
    /// and logs the reason, if files are left.
    bool Remove(Found& found)
    {
        // Some file systems rename an open file instead of removing it, and so list another name each time.
        constexpr int mostRounds = 16;
        try {
            for (int round = 1; !RemoveListed(round < mostRounds); ++round) {
                if (!Read(found)) {
                    return false;
                }
            }
            return true;
        } catch (const std::exception& error) {
            LogMessage(LogLevel::Warning)
                << "Couldn't remove completed operations cache directory (" << error.what() << ")";
            return false;
        }
    }

private:
    /// All entries, of any type: reading reports those that hold no operation.
    std::vector<TimestampedOperationPath> List() const
    {
        std::error_code failure;
        const std::vector<std::string> names = Common::DirectoryNames(m_actual.string(), failure);
        if (failure) {
            throw fs::filesystem_error("directory iterator cannot open directory", m_shown,
                                       failure);
        }
        std::vector<TimestampedOperationPath> entries;
        for (const std::string& name : names) {
            const fs::path path = m_actual / name;
            entries.push_back({fs::last_write_time(path), path});
        }
        std::sort(entries.begin(), entries.end(),
                  [](const auto& left, const auto& right) { return left.time < right.time; });
        return entries;
    }

    /// Returns the entries to remove. Throws without adding or logging anything if a failure says
    /// nothing about the file, such as a lack of memory.
    std::vector<fs::path> ReadListed(Found& found) const
    {
        std::vector<fs::path> listed;
        std::vector<TimestampedOperation> operations;
        std::vector<std::string> failures;
        for (const TimestampedOperationPath& entry : List()) {
            const Result<Operation> operation = OperationFile::Read(entry.path.string());
            if (operation) {
                operations.push_back({entry.time, operation.Get()});
            } else {
                failures.push_back(WithPath(operation.GetError(), m_actual, m_shown));
            }
            listed.push_back(entry.path);
        }
        found.Add(operations);
        for (const std::string& failure : failures) {
            LogMessage(LogLevel::Warning) << failure;
        }
        return listed;
    }

    void RemoveListedFiles() const
    {
        std::error_code failure;
        for (const fs::path& entry : m_listed) {
            if (::unlink(entry.c_str()) != 0) { // a directory, perhaps
                fs::remove_all(entry, failure);
            }
            if (failure) {
                throw fs::filesystem_error("cannot remove all", m_shown, failure);
            }
        }
    }

    /// Returns false if another process has added files meanwhile.
    bool RemoveListed(bool mayBeFilled) const
    {
        std::error_code failure;
        // The target of a link does not belong to the cache.
        if (!fs::is_symlink(m_actual, failure)) {
            RemoveListedFiles();
        }
        fs::remove(m_actual, failure);
        if (failure == std::errc::directory_not_empty && mayBeFilled) {
            return false;
        }
        if (failure) {
            throw fs::filesystem_error("cannot remove all", m_shown, failure);
        }
        return true;
    }

    fs::path m_actual;
    const fs::path& m_shown;
    std::vector<fs::path> m_listed;
};

bool ReadAndRemoveAt(const fs::path& actual, const fs::path& shown, Found& found)
{
    Reader reader(actual, shown);
    return reader.Read(found) && reader.Remove(found);
}

/// Renames the directory first: under its usual name, another process could read it at the same time, or
/// still store operations in it.
void ReadAndRemoveDirectory(const fs::path& directory, Found& found)
{
    if (::rmdir(directory.c_str()) == 0) {
        return; // it was empty, the usual case
    }
    std::error_code cannotBeRenamed;
    const std::optional<PrivateDirectory> taken =
        PrivateDirectory::Take(directory, reading, cannotBeRenamed);
    if (cannotBeRenamed) {
        ReadAndRemoveAt(directory, directory, found);
    }
    if (!taken) {
        return;
    }
    if (!ReadAndRemoveAt(taken->Path(), directory, found)) {
        std::error_code ignored; // if a new one exists, the next start reads both
        fs::rename(taken->Path(), directory, ignored);
    }
}

void RemoveHalfWritten(const fs::path& directory)
{
    for (const PrivateDirectory& left : PrivateDirectory::LeftBehind(directory, writing)) {
        std::error_code ignored; // the next start tries again
        fs::remove_all(left.Path(), ignored);
    }
}

/// Reads all files before it removes the first, so that a crash in between loses none.
void ReadAndRemoveAll(const fs::path& directory, Found& found)
{
    RemoveHalfWritten(directory);
    const std::vector<PrivateDirectory> leftBehind =
        PrivateDirectory::LeftBehind(directory, reading);
    std::vector<Reader> read;
    for (const PrivateDirectory& left : leftBehind) {
        Reader reader(left.Path(), directory);
        if (reader.Read(found)) {
            read.push_back(std::move(reader));
        }
    }
    if (fs::is_directory(directory)) {
        ReadAndRemoveDirectory(directory, found);
    }
    for (Reader& reader : read) {
        reader.Remove(found);
    }
}

bool IsMissing(const fs::path& directory)
{
    const fs::file_type type = fs::status(directory).type();
    return type == fs::file_type::not_found || type == fs::file_type::unknown;
}

/// Anything that exists at the path is used as it is, even a regular file.
void EnsureExists(const fs::path& directory)
{
    // Another process may create the directory at the same time, and a third one rename it to read it.
    constexpr int mostTries = 100;
    std::error_code failure = std::make_error_code(std::errc::file_exists);
    for (int tries = 0; tries < mostTries && failure == std::errc::file_exists; ++tries) {
        if (!IsMissing(directory)) {
            return;
        }
        fs::create_directories(directory, failure);
    }
    if (failure) {
        throw fs::filesystem_error("cannot create directories", directory, failure);
    }
}

/// Stores each operation with one rename, so that no reader finds a half-written file.
class Writer
{
public:
    explicit Writer(const fs::path& directory)
        : m_directory(directory), m_staging(PrivateDirectory::Create(directory, writing))
    {
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer()
    {
        // Allocates no memory, and ignores failures: the next start tries again.
        if (m_staging) {
            ::unlink(m_staged.c_str());
            ::rmdir(m_staging->Path().c_str());
        }
    }

    Result<void> Save(const Operation& operation) const
    {
        const std::string& uuid = operation.GetUUID(); // any text, as the daemon sent it
        if (!Common::IsPlainFileName(uuid)) {
            return CannotOpen(m_directory.string() + "/" + uuid);
        }
        const fs::path file = m_directory / uuid;
        if (!m_staging) {
            return OperationFile::Write(operation, file.string());
        }
        const Result<void> result = OperationFile::Write(operation, m_staged.string());
        if (!result) {
            return ErrorResult(WithPath(result.GetError(), m_staged, file));
        }
        const std::error_code failure = MoveTo(file);
        if (failure == std::errc::cross_device_link) {
            return OperationFile::Write(operation, file.string());
        }
        return failure ? Result<void>(CannotOpen(file.string())) : SuccessResult<void>();
    }

private:
    static ErrorResult CannotOpen(const std::string& path)
    {
        return ErrorResult("Couldn't open " + path + " to save operation");
    }

    /// Creates the directory without querying its status: that would not wait for a removal in progress.
    void CreateAgain() const
    {
        std::error_code ignored; // moving the file will fail again
        fs::create_directory(m_directory, ignored);
    }

    std::error_code MoveTo(const fs::path& file) const
    {
        // Every process that starts renames the directory in order to read it.
        constexpr int mostStarts = 100;
        std::error_code failure;
        fs::rename(m_staged, file, failure);
        for (int starts = 0; failure == std::errc::no_such_file_or_directory && starts < mostStarts;
             ++starts) {
            CreateAgain();
            fs::rename(m_staged, file, failure);
        }
        return failure;
    }

    const fs::path& m_directory;
    const std::optional<PrivateDirectory> m_staging;
    const fs::path m_staged = m_staging ? m_staging->Path() / "operation" : fs::path();
};

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
    const Writer writer(directory);
    for (const Operation& operation : operations) {
        if (last[operation.GetUUID()] != &operation) {
            continue;
        }
        const Result<void> result = writer.Save(operation);
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
    Found found;
    try {
        const Common::StandardDescriptorsTaken others;
        ReadAndRemoveAll(CacheDirectory(), found);
    } catch (const std::exception& error) {
        LogMessage(LogLevel::Warning)
            << "Couldn't read cached completed operations (" << error.what() << ")";
    }
    return found.InOrderOfTime();
}

void Write(const std::vector<Operation>& operations)
{
    try {
        const Common::StandardDescriptorsTaken others;
        const fs::path directory = CacheDirectory();
        EnsureExists(directory);
        if (!operations.empty()) {
            LogFailures(operations, SaveLastOfEach(operations, directory));
        }
    } catch (const std::exception& error) {
        LogMessage(LogLevel::Warning)
            << "Couldn't create cache directory to store completed operations (" << error.what()
            << ")";
    }
}

} // namespace Emporium::CompletedOperationsCache
