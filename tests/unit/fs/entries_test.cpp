// SPDX-License-Identifier: BSD-3-Clause
#include "fs_fixture.h"

#include <chrono>
#include <set>

namespace {

using namespace FsTest;

class Entries : public FsTestBase
{
protected:
    /// Expects the action to log one cause and to throw this message.
    template <typename Action>
    void ExpectLoggedFailure(Action action, const std::string& message)
    {
        const std::string log = LogOf([&] { ExpectFailure(action, message); });
        EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
        EXPECT_EQ(Lines(log), 1) << log;
    }

    std::string Text(const char* name) const { return (Root() / name).native(); }
};

TEST_F(Entries, RemovingDeletesATreeAndIgnoresAMissingEntry)
{
    fs::create_directories(Root() / "tree" / "a" / "b");
    MakeFile("tree/a/file");
    EXPECT_EQ(LogOf([&] {
                  Remove(Root() / "tree");
                  Remove(Root() / "tree");
              }),
              "");
    EXPECT_FALSE(fs::exists(Root() / "tree"));
}

TEST_F(Entries, RemovingALinkLeavesItsTarget)
{
    MakeFile("file");
    fs::create_symlink("file", Root() / "link");
    Remove(Root() / "link");
    EXPECT_TRUE(fs::exists(Root() / "file"));
    EXPECT_FALSE(fs::is_symlink(Root() / "link"));
}

TEST_F(Entries, AFailureToRemoveIsLoggedAndThrown)
{
    fs::create_directories(Root() / "closed" / "inner");
    fs::permissions(Root() / "closed", fs::perms::owner_read | fs::perms::owner_exec);
    const AsNobody nobody(Root());
    ExpectLoggedFailure([&] { Remove(Root() / "closed" / "inner"); },
                        "Couldn't remove filesystem entry: " + Text("closed/inner"));
    fs::permissions(Root() / "closed", fs::perms::owner_all);
}

TEST_F(Entries, DirectoriesAreCreatedWithTheirParentsAndMayExist)
{
    CreateDirectories(Root() / "a" / "b");
    CreateDirectories(Root() / "a" / "b");
    EXPECT_TRUE(fs::is_directory(Root() / "a" / "b"));
}

TEST_F(Entries, AFailureToCreateADirectoryIsLoggedAndThrown)
{
    MakeFile("file");
    ExpectLoggedFailure([&] { CreateDirectories(Root() / "file" / "a"); },
                        "Couldn't create directory: " + Text("file/a"));
}

TEST_F(Entries, TheTargetOfALinkIsReadUnresolved)
{
    fs::create_symlink("../some/./where", Root() / "link");
    EXPECT_EQ(ReadSymlink(Root() / "link").native(), "../some/./where");
    MakeFile("file");
    ExpectLoggedFailure([&] { ReadSymlink(Root() / "file"); },
                        "Couldn't read symlink: " + Text("file"));
}

TEST_F(Entries, MovingCreatesTheParentsAndReplacesAFile)
{
    MakeFile("from", "new");
    fs::create_directories(Root() / "a");
    MakeFile("a/to", "old");
    Move(Root() / "from", Root() / "a" / "to");
    EXPECT_EQ(ContentOf(Root() / "a" / "to"), "new");
    Move(Root() / "a" / "to", Root() / "b" / "c" / "to");
    EXPECT_EQ(ContentOf(Root() / "b" / "c" / "to"), "new");
}

TEST_F(Entries, AFailureToMoveIsLoggedAndThrown)
{
    ExpectLoggedFailure([&] { Move(Root() / "missing", Root() / "to"); },
                        "Couldn't move " + Text("missing") + " to " + Text("to"));
}

TEST_F(Entries, LinksAreCreatedWithTheirParents)
{
    MakeFile("file");
    CreateSymlink("../file", Root() / "a" / "symlink");
    EXPECT_EQ(fs::read_symlink(Root() / "a" / "symlink"), "../file");
    CreateHardlink(Root() / "file", Root() / "b" / "hardlink");
    EXPECT_EQ(fs::hard_link_count(Root() / "file"), 2U);
}

TEST_F(Entries, ALinkOverAnExistingEntryFailsWithASuffixAndLogsNothing)
{
    MakeFile("file");
    EXPECT_EQ(LogOf([&] {
                  ExpectFailure([&] { CreateSymlink("x", Root() / "file"); },
                                "Couldn't create symlink " + Text("file") +
                                    " pointing to x (path already exists)");
                  ExpectFailure([&] { CreateHardlink(Root() / "y", Root() / "file"); },
                                "Couldn't create hardlink " + Text("file") + " pointing to " +
                                    Text("y") + " (path already exists)");
              }),
              "");
}

TEST_F(Entries, ALinkOverADanglingLinkFailsWithoutTheSuffix)
{
    fs::create_symlink("nowhere", Root() / "dangling");
    ExpectLoggedFailure([&] { CreateSymlink("x", Root() / "dangling"); },
                        "Couldn't create symlink " + Text("dangling") + " pointing to x");
}

TEST_F(Entries, ALinkOverALinkLoopIsLoggedTwice)
{
    fs::create_symlink("loop", Root() / "loop");
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CreateSymlink("x", Root() / "loop"); },
                      "Couldn't create symlink " + Text("loop") + " pointing to x");
    });
    EXPECT_EQ(Lines(log), 2) << log;
}

TEST_F(Entries, AHardLinkToAMissingFileIsLoggedAndThrown)
{
    ExpectLoggedFailure([&] { CreateHardlink(Root() / "missing", Root() / "link"); },
                        "Couldn't create hardlink " + Text("link") + " pointing to " +
                            Text("missing"));
}

class Reading : public Entries
{
protected:
    std::set<std::string> Names(unsigned flags) const
    {
        std::set<std::string> names;
        for (const fs::path& path : ReadDirectory(Root(), flags)) {
            names.insert(path.lexically_relative(Root()).native());
        }
        return names;
    }
};

TEST_F(Reading, ListsDirectEntriesOrTheWholeTree)
{
    fs::create_directories(Root() / "a" / "b");
    MakeFile("a/b/file");
    fs::create_directory_symlink("a", Root() / "link");
    EXPECT_EQ(Names(0), (std::set<std::string>{"a", "link"}));
    EXPECT_EQ(Names(Recursive), (std::set<std::string>{"a", "a/b", "a/b/file", "link"}));
    EXPECT_EQ(Names(4), Names(0)) << "other bits are ignored";
}

TEST_F(Reading, OrdersByTimeOldestFirst)
{
    const auto now = fs::file_time_type::clock::now();
    int age = 1;
    for (const char* name : {"c", "a", "b"}) {
        fs::last_write_time(MakeFile(name), now - std::chrono::hours(age++));
    }
    EXPECT_EQ(ReadDirectory(Root(), OrderByTime),
              (std::vector<fs::path>{Root() / "b", Root() / "a", Root() / "c"}));
}

TEST_F(Reading, OrdersTheWholeTreeByTime)
{
    const auto now = fs::file_time_type::clock::now();
    fs::create_directories(Root() / "a" / "b");
    int age = 1;
    for (const char* name : {"c", "a/b/d", "a/e", "f"}) {
        fs::last_write_time(MakeFile(name), now - std::chrono::hours(age++));
    }
    fs::last_write_time(Root() / "a" / "b", now - std::chrono::hours(age++));
    fs::last_write_time(Root() / "a", now - std::chrono::hours(age++));
    EXPECT_EQ(ReadDirectory(Root(), Recursive | OrderByTime),
              (std::vector<fs::path>{Root() / "a", Root() / "a/b", Root() / "f", Root() / "a/e",
                                     Root() / "a/b/d", Root() / "c"}));
}

TEST_F(Reading, ADanglingLinkIsAFailureEvenWithoutOrdering)
{
    MakeFile("file");
    fs::create_symlink("nowhere", Root() / "dangling");
    ExpectLoggedFailure([&] { ReadDirectory(Root(), 0); },
                        "Couldn't read directory: " + Root().native());
}

TEST_F(Reading, AMissingDirectoryIsAFailure)
{
    ExpectLoggedFailure([&] { ReadDirectory(Root() / "missing", Recursive); },
                        "Couldn't read directory: " + Text("missing"));
}

TEST_F(Reading, ListsAThousandEntriesAndOddNames)
{
    for (int number = 0; number < 1000; ++number) {
        MakeFile(std::to_string(number), "");
    }
    const std::string odd = "q\"b\\s l\nf \xff\xfe";
    MakeFile(odd, "");
    const auto names = Names(0);
    EXPECT_EQ(names.size(), 1001U);
    EXPECT_TRUE(names.contains(odd));
}

} // namespace
