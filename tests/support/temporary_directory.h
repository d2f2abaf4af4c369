// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace TestSupport {

/// A fresh directory that goes, with all that is in it, at the end of the test.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string model = (std::filesystem::temp_directory_path() / "emporium-XXXXXX").string();
        if (mkdtemp(model.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        m_path = model;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace TestSupport
