// SPDX-License-Identifier: BSD-3-Clause
#include "client/private_directory.h"

#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/file.h>
#include <vector>

namespace {

/// What happens in place of the system call, if anything.
std::function<int(int file, int operation)> insteadOfFlock;

} // namespace

extern "C" {
decltype(flock) __real_flock;
int __wrap_flock(int file, int operation)
{
    return insteadOfFlock ? insteadOfFlock(file, operation) : __real_flock(file, operation);
}
}

namespace {

namespace fs = std::filesystem;
using Emporium::PrivateDirectory;

class APrivateDirectory : public testing::Test
{
protected:
    ~APrivateDirectory() override { insteadOfFlock = nullptr; }

    /// Names in the parent of the original.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(temporary.Path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TestSupport::TemporaryDirectory temporary;
    const fs::path original = temporary.Path() / "original";
};

TEST_F(APrivateDirectory, HasANameOfItsOwnInEachProcessAndEachTime)
{
    const auto first = PrivateDirectory::Create(original, "reading");
    const auto second = PrivateDirectory::Create(original, "reading");
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->Path(), second->Path());
    const std::string digits = first->Path().filename().string().substr(sizeof "original.reading");
    EXPECT_EQ(digits.size(), 16U);
    EXPECT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST_F(APrivateDirectory, IsReplacedByAnotherIfItIsTakenBeforeItIsLocked)
{
    int calls = 0;
    insteadOfFlock = [&](int file, int operation) {
        errno = EWOULDBLOCK;
        return ++calls == 1 ? -1 : __real_flock(file, operation);
    };
    const auto directory = PrivateDirectory::Create(original, "writing");
    ASSERT_TRUE(directory);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(Names(), (std::vector{directory->Path().filename().string()}));
}

TEST_F(APrivateDirectory, IsNotLeftBehindIfItIsRemovedBeforeItIsLocked)
{
    const fs::path path = temporary.Path() / "original.reading-1";
    for (const bool another : {false, true}) {
        fs::create_directory(path);
        insteadOfFlock = [&](int file, int operation) {
            fs::rename(path, temporary.Path() / "elsewhere");
            if (another) {
                fs::create_directory(path);
            }
            return __real_flock(file, operation);
        };
        EXPECT_TRUE(PrivateDirectory::LeftBehind(original, "reading").empty());
        fs::remove(temporary.Path() / "elsewhere");
        fs::remove(path);
    }
}

TEST_F(APrivateDirectory, IsUsedWithoutALockWhereTheFileSystemHasNone)
{
    insteadOfFlock = [](int, int) {
        errno = ENOLCK;
        return -1;
    };
    EXPECT_TRUE(PrivateDirectory::Create(original, "reading"));
    EXPECT_EQ(PrivateDirectory::LeftBehind(original, "reading").size(), 1U);
}

} // namespace
