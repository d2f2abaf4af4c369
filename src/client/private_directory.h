// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

namespace Emporium {

/// A directory beside another one, with a name that no other process knows. Locked as long as this
/// object lives, so that a later start recognises those that a crash has left behind.
class PrivateDirectory
{
public:
    /// A new, empty one. Nothing where none can be created.
    static std::optional<PrivateDirectory> Create(const std::filesystem::path& original,
                                                  std::string_view purpose);

    /// The original, renamed. Nothing where another process was faster, or where it cannot be renamed
    /// for the reason given by `failure`.
    static std::optional<PrivateDirectory> Take(const std::filesystem::path& original,
                                                std::string_view purpose, std::error_code& failure);

    /// Those of processes that have crashed.
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
