// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <filesystem>
#include <optional>

namespace Simulator {

/// A new temporary directory whose path is short enough for a socket. Destroying the object removes it.
///
/// A process that is killed cannot remove its directory; the next one that creates a directory does.
/// A locked file in each directory shows which of them are in use.
class PrivateDirectory
{
public:
    /// @throws std::runtime_error when it cannot be created
    PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;
    ~PrivateDirectory();

    const std::filesystem::path& Path() const { return m_path; }

private:
    bool Create(const std::filesystem::path& parent);

    std::filesystem::path m_path;
    std::optional<Common::FileDescriptor> m_lock;
};

} // namespace Simulator
