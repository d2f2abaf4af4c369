// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

namespace Emporium {

/// A directory next to another one, with a random name. It is locked as long as this object lives, so
/// that a later start recognises the directories that a crash has left behind.
class PrivateDirectory
{
public:
    /// Creates an empty directory. Returns nothing if that fails.
    static std::optional<PrivateDirectory> Create(const std::filesystem::path& original,
                                                  std::string_view purpose);

    /// Renames the original. Returns nothing if another process was faster, or, with `failure` set, if
    /// it cannot be renamed.
    static std::optional<PrivateDirectory> Take(const std::filesystem::path& original,
                                                std::string_view purpose, std::error_code& failure);

    /// Returns the directories of processes that have crashed.
    static std::vector<PrivateDirectory> LeftBehind(const std::filesystem::path& original,
                                                    std::string_view purpose);

    const std::filesystem::path& Path() const { return m_path; }

private:
    explicit PrivateDirectory(std::filesystem::path path);

    bool Lock() const;

    std::filesystem::path m_path;
    Common::FileDescriptor m_directory;
};

} // namespace Emporium
