// SPDX-License-Identifier: BSD-3-Clause
#include "fs_fixture.h"

#include <cstdlib>

namespace {

using namespace FsTest;

class Paths : public FsTestBase
{
};

TEST_F(Paths, TheRootIsTheVariablesValueUnchanged)
{
    unsetenv("KVD_ROOT_FS");
    EXPECT_EQ(GetRootPath(), "/");
    for (const char* value : {"/tmp/img", "relative/./x/", ""}) {
        setenv("KVD_ROOT_FS", value, 1);
        EXPECT_EQ(GetRootPath().native(), value);
    }
    unsetenv("KVD_ROOT_FS");
}

TEST_F(Paths, TheHomeIsTheVariablesValueUnchanged)
{
    for (const char* value : {"/home/somebody", "relative", ""}) {
        setenv("HOME", value, 1);
        EXPECT_EQ(GetHomePath().native(), value);
    }
}

TEST_F(Paths, AnUnsetHomeIsAFailure)
{
    unsetenv("HOME");
    ExpectFailure([] { GetHomePath(); }, "Couldn't locate current user home directory");
}

TEST_F(Paths, TheTemporaryDirectoryComesFromTheEnvironment)
{
    setenv("TMPDIR", Root().c_str(), 1);
    EXPECT_EQ(GetTempDirectoryPath(), Root());
    unsetenv("TMPDIR");
}

TEST_F(Paths, AMissingTemporaryDirectoryIsLoggedAndThrown)
{
    setenv("TMPDIR", (Root() / "missing").c_str(), 1);
    const std::string log = LogOf([] {
        ExpectFailure([] { GetTempDirectoryPath(); }, "Couldn't retrieve temp directory path");
    });
    EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
    unsetenv("TMPDIR");
}

TEST_F(Paths, AUniquePathReplacesEachPercentSignWithAHexadecimalDigit)
{
    const std::string path = MakeUniquePath("/a-%%%%-b%").native();
    ASSERT_EQ(path.size(), 10U);
    EXPECT_EQ(path.substr(0, 3), "/a-");
    EXPECT_EQ(path.substr(7, 2), "-b");
    for (const std::size_t place : {3U, 4U, 5U, 6U, 9U}) {
        EXPECT_NE(std::string("0123456789abcdef").find(path[place]), std::string::npos) << path;
    }
    EXPECT_NE(MakeUniquePath("%%%%%%%%%%%%%%%%"), MakeUniquePath("%%%%%%%%%%%%%%%%"));
    EXPECT_EQ(MakeUniquePath("plain").native(), "plain");
}

// --- tests of an entry ---

class EntryTests : public FsTestBase
{
};

TEST_F(EntryTests, EachKindIsRecognised)
{
    MakeFile("file");
    fs::create_directory(Root() / "directory");
    MakeSocket("socket");
    fs::create_symlink("file", Root() / "link");
    const std::string log = LogOf([&] {
        EXPECT_TRUE(Exists(Root() / "file"));
        EXPECT_TRUE(IsRegularFile(Root() / "file"));
        EXPECT_TRUE(IsRegularFile(Root() / "link"));
        EXPECT_FALSE(IsRegularFile(Root() / "directory"));
        EXPECT_TRUE(IsDirectory(Root() / "directory"));
        EXPECT_FALSE(IsDirectory(Root() / "file"));
        EXPECT_TRUE(IsSocket(Root() / "socket"));
        EXPECT_FALSE(IsSocket(Root() / "file"));
        EXPECT_TRUE(IsSymlink(Root() / "link"));
        EXPECT_FALSE(IsSymlink(Root() / "file"));
    });
    EXPECT_EQ(log, "");
}

TEST_F(EntryTests, AMissingEntryIsOfNoKindAndNotLogged)
{
    const fs::path missing = Root() / "missing" / "entry";
    EXPECT_EQ(LogOf([&] {
                  EXPECT_FALSE(Exists(missing));
                  EXPECT_FALSE(IsDirectory(missing));
                  EXPECT_FALSE(IsRegularFile(missing));
                  EXPECT_FALSE(IsSymlink(missing));
                  EXPECT_FALSE(IsSocket(missing));
              }),
              "");
}

TEST_F(EntryTests, ADanglingLinkIsALinkAndDoesNotExist)
{
    fs::create_symlink("nowhere", Root() / "dangling");
    EXPECT_TRUE(IsSymlink(Root() / "dangling"));
    EXPECT_FALSE(Exists(Root() / "dangling"));
}

TEST_F(EntryTests, AFailureIsLoggedAndGivesFalse)
{
    fs::create_symlink("loop", Root() / "loop");
    const fs::path loop = Root() / "loop" / "entry";
    for (bool (*test)(const fs::path&) :
         {&Exists, &IsDirectory, &IsRegularFile, &IsSymlink, &IsSocket}) {
        const std::string log = LogOf([&] { EXPECT_FALSE(test(loop)); });
        EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
        EXPECT_EQ(Lines(log), 1);
    }
}

TEST_F(EntryTests, AnEmptyDirectoryIsEmptyAndOneWithAnEntryIsNot)
{
    fs::create_directory(Root() / "directory");
    EXPECT_TRUE(IsEmptyDirectory(Root() / "directory"));
    MakeFile("directory/file");
    EXPECT_FALSE(IsEmptyDirectory(Root() / "directory"));
}

TEST_F(EntryTests, IsEmptyDirectoryThrowsForAnythingButADirectory)
{
    MakeFile("file");
    for (const char* name : {"file", "missing"}) {
        EXPECT_EQ(LogOf([&] {
                      ExpectFailure([&] { IsEmptyDirectory(Root() / name); },
                                    "Attempt to check if the path is an empty directory, but the "
                                    "path is not a directory");
                  }),
                  "");
    }
}

TEST_F(EntryTests, AnUnreadableDirectoryIsLoggedAndNotEmpty)
{
    fs::create_directory(Root() / "closed");
    fs::permissions(Root() / "closed", fs::perms::owner_write);
    const std::string log = [&] {
        const AsNobody nobody(Root());
        return LogOf([&] { EXPECT_FALSE(IsEmptyDirectory(Root() / "closed")); });
    }();
    fs::permissions(Root() / "closed", fs::perms::owner_all); // so that its owner can delete it
    EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
}

// --- permissions ---

class Permissions : public FsTestBase
{
};

TEST_F(Permissions, AnyBitOfTheMaskIsEnough)
{
    MakeFile("file");
    fs::permissions(Root() / "file", static_cast<fs::perms>(0644));
    EXPECT_FALSE(HasPermissions(Root() / "file", fs::perms::owner_exec));
    EXPECT_TRUE(HasPermissions(Root() / "file", fs::perms::owner_read | fs::perms::owner_exec));
    EXPECT_FALSE(HasPermissions(Root() / "file", fs::perms::none));
}

TEST_F(Permissions, OnlyARegularFileHasPermissions)
{
    fs::create_directory(Root() / "directory");
    EXPECT_FALSE(HasPermissions(Root() / "directory", fs::perms::all));
    EXPECT_FALSE(HasPermissions(Root() / "missing", fs::perms::all));
}

TEST_F(Permissions, AFailureToReadThemIsLoggedAndThrown)
{
    fs::create_symlink("loop", Root() / "loop");
    const std::string log = LogOf([&] {
        ExpectFailure([&] { HasPermissions(Root() / "loop", fs::perms::all); },
                      "Couldn't get permissions for: " + (Root() / "loop").native());
    });
    EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
}

TEST_F(Permissions, SettingReplacesThemAndFollowsALink)
{
    MakeFile("file");
    fs::create_symlink("file", Root() / "link");
    SetPermissions(Root() / "link", fs::perms::owner_read);
    EXPECT_EQ(fs::status(Root() / "file").permissions(), fs::perms::owner_read);
}

TEST_F(Permissions, AFailureToSetThemIsLoggedAndThrown)
{
    const std::string log = LogOf([&] {
        ExpectFailure([&] { SetPermissions(Root() / "missing", fs::perms::all); },
                      "Couldn't set permissions for " + (Root() / "missing").native());
    });
    EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
}

} // namespace
