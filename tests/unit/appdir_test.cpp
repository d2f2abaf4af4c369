// SPDX-License-Identifier: BSD-3-Clause
#include <appdir.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

std::string Path()
{
    return AppDir::getPath(AppDir::PathType::Cache);
}

class ApplicationDirectory : public testing::Test
{
protected:
    ApplicationDirectory()
    {
        setenv("XDG_CACHE_HOME", "/cache", 1);
        setenv("HOME", "/home/user", 1);
        setenv("VEYRA_APP_ID", "org.example.app", 1);
    }
};

TEST_F(ApplicationDirectory, IsUnderTheCacheHome)
{
    EXPECT_EQ(Path(), "/cache/org.example.app");
}

TEST_F(ApplicationDirectory, IsUnderHomeIfTheCacheHomeIsUnsetEmptyOrRelative)
{
    unsetenv("XDG_CACHE_HOME");
    EXPECT_EQ(Path(), "/home/user/.cache/org.example.app");
    for (const char* value : {"", "relative", "./relative"}) {
        setenv("XDG_CACHE_HOME", value, 1);
        EXPECT_EQ(Path(), "/home/user/.cache/org.example.app") << value;
    }
}

TEST_F(ApplicationDirectory, IsUnderTheHomeOfThePasswordDatabaseIfHomeIsUnsetOrRelative)
{
    unsetenv("XDG_CACHE_HOME");
    const passwd* const user = getpwuid(getuid());
    if (user == nullptr) {
        GTEST_SKIP() << "this user is not in the password database";
    }
    const std::string expected = std::string(user->pw_dir) + "/.cache/org.example.app";
    unsetenv("HOME");
    EXPECT_EQ(Path(), expected);
    setenv("HOME", "relative", 1);
    EXPECT_EQ(Path(), expected);
}

TEST_F(ApplicationDirectory, IsNamedAfterTheProgramIfTheApplicationIDIsNotAPlainFileName)
{
    const std::string byProgram = std::string("/cache/") + program_invocation_short_name;
    unsetenv("VEYRA_APP_ID");
    EXPECT_EQ(Path(), byProgram);
    for (const char* value : {"", ".", "..", "a/b", "/", "../a"}) {
        setenv("VEYRA_APP_ID", value, 1);
        EXPECT_EQ(Path(), byProgram) << value;
    }
}

TEST_F(ApplicationDirectory, OnlyTheCacheIsSupported)
{
    EXPECT_THROW(AppDir::getPath(static_cast<AppDir::PathType>(1)), std::invalid_argument);
}

} // namespace
