// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace TestSupport {

/// A new temporary directory, removed with its content on destruction.
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

/// Sets the home of the library's cache while this object lives.
///
/// The process-wide connection writes its cache when the process exits, and would create a removed
/// directory again. After the test, the variable therefore names a static directory: it was created
/// before the library was first used, so it is removed after the cache is written.
class CacheHome
{
public:
    CacheHome()
    {
        AfterTheTest();
        Set(Path());
    }
    CacheHome(const CacheHome&) = delete;
    CacheHome& operator=(const CacheHome&) = delete;
    ~CacheHome() { Set(AfterTheTest().Path()); }

    const std::filesystem::path& Path() const { return m_directory.Path(); }

private:
    static const TemporaryDirectory& AfterTheTest()
    {
        static const TemporaryDirectory directory;
        return directory;
    }

    static void Set(const std::filesystem::path& path)
    {
        setenv("XDG_CACHE_HOME", path.c_str(), 1);
    }

    TemporaryDirectory m_directory;
};

} // namespace TestSupport
