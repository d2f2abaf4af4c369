// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/fs.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <common/error.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace FsTest {

namespace fs = std::filesystem;
using namespace Common;

inline long Lines(const std::string& log)
{
    return std::count(log.begin(), log.end(), '\n');
}

template <typename Action>
std::string LogOf(Action action)
{
    return TestSupport::OutputOf(action);
}

/// Expects the action to throw a filesystem error with this message.
template <typename Action>
void ExpectFailure(Action action, const std::string& message)
{
    try {
        action();
        ADD_FAILURE() << "nothing was thrown instead of: " << message;
    } catch (const Error& error) {
        EXPECT_EQ(error.what(), message);
        EXPECT_EQ(error.code(), make_error_code(ErrorCode::Filesystem));
    }
}

/// Drops root's privileges while it lives, for tests of denied access. The unprivileged user becomes
/// the owner of the tree at `root`.
class AsNobody
{
public:
    explicit AsNobody(const fs::path& root)
    {
        if (getuid() == 0) {
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(
                     root, fs::directory_options::skip_permission_denied)) {
                Give(entry.path());
            }
            Give(root);
            EXPECT_EQ(seteuid(nobody), 0);
        }
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody()
    {
        if (getuid() == 0) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

private:
    static constexpr uid_t nobody = 65534;

    static void Give(const fs::path& path) { EXPECT_EQ(lchown(path.c_str(), nobody, nobody), 0); }
};

class FsTestBase : public testing::Test
{
protected:
    const fs::path& Root() const { return m_directory.Path(); }

    fs::path MakeFile(const fs::path& name, const std::string& content = "content") const
    {
        std::ofstream(Root() / name, std::ios::binary) << content;
        return Root() / name;
    }

    static std::string ContentOf(const fs::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    fs::path MakeSocket(const char* name) const
    {
        const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (Root() / name).native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(descriptor);
        return Root() / name;
    }

private:
    TestSupport::TemporaryDirectory m_directory;
};

} // namespace FsTest
