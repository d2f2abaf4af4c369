// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace Emporium;
using namespace TestSupport;

class Cache : public ConnectionTest
{
protected:
    /// Stores an entry that was last written `age` seconds ago.
    void Store(const std::string& name, int age, const Operation& operation)
    {
        fs::create_directories(CacheDirectory());
        const fs::path path = CacheDirectory() / name;
        ASSERT_TRUE(static_cast<bool>(operation.SaveToFile(path.string())));
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::seconds(age));
    }

    void Store(const std::string& uuid, int age) { Store(uuid, age, MakeOperation(uuid, 100)); }

    /// Creates and destroys a connection. Returns its completed operations.
    Strings Run(std::string* log = nullptr)
    {
        Strings completed;
        const std::string output = OutputOf([&] {
            const DaemonConnection connection;
            completed = Contents(connection.GetCompletedOperations());
        });
        if (log != nullptr) {
            *log = output;
        }
        return completed;
    }

    Strings Entries() const
    {
        Strings entries;
        for (const auto& entry : fs::directory_iterator(CacheDirectory())) {
            entries.push_back(entry.path().filename().string());
        }
        std::sort(entries.begin(), entries.end());
        return entries;
    }

    /// Returns the files that a connection writes on destruction, in the order in which it closes
    /// them.
    Strings FilesWritten()
    {
        auto connection = std::make_unique<DaemonConnection>();
        fs::create_directories(CacheDirectory());
        const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        inotify_add_watch(events, CacheDirectory().c_str(), IN_CLOSE_WRITE);
        connection.reset();
        std::array<char, 65536> buffer{};
        const ssize_t size = read(events, buffer.data(), buffer.size());
        close(events);
        Strings files;
        for (ssize_t position = 0; position < size;) {
            inotify_event event{};
            std::memcpy(&event, &buffer.at(static_cast<std::size_t>(position)), sizeof event);
            position += static_cast<ssize_t>(sizeof event);
            files.emplace_back(&buffer.at(static_cast<std::size_t>(position)));
            position += event.len;
        }
        return files;
    }

    std::string PathOf(const std::string& name) const
    {
        return CacheDirectory().string() + "/" + name;
    }
};

TEST_F(Cache, CachedOperationsPrecedeTheDaemonsInTheOrderTheyWereWritten)
{
    Store("b", 30);
    Store("c", 20);
    Store("a", 10);
    properties.CompletedOperations = {MakeOperation("daemon", 101)};
    EXPECT_EQ(Run(), (Strings{"b 100", "c 100", "a 100", "daemon 101"}));
}

TEST_F(Cache, OperationsAreLoadedInTheNextRun)
{
    properties.CompletedOperations = {MakeOperation("one", 100), MakeOperation("two", 101)};
    Run();
    EXPECT_EQ(Entries(), (Strings{"one", "two"}));
    properties.CompletedOperations.clear();
    Strings completed = Run();
    std::sort(completed.begin(), completed.end());
    EXPECT_EQ(completed, (Strings{"one 100", "two 101"}));
    EXPECT_EQ(Entries(), (Strings{"one", "two"})) << "and in the run after that";
}

TEST_F(Cache, AnOperationThatTheDaemonStillKnowsIsListedTwiceAndStoredOnce)
{
    Store("one", 10);
    properties.CompletedOperations = {MakeOperation("one", 101)};
    EXPECT_EQ(Run(), (Strings{"one 100", "one 101"}));
    EXPECT_EQ(Entries(), (Strings{"one"}));
}

TEST_F(Cache, EachFileIsWrittenOnceInTheOrderOfTheLastOperationsOfEachUUID)
{
    Store("one", 30);
    Store("two", 20);
    Store("three", 10);
    properties.CompletedOperations = {MakeOperation("two", 101), MakeOperation("four", 100),
                                      MakeOperation("one", 101)};
    EXPECT_EQ(FilesWritten(), (Strings{"three", "two", "four", "one"}));
    properties.CompletedOperations.clear();
    Strings completed = Run();
    std::sort(completed.begin(), completed.end());
    EXPECT_EQ(completed, (Strings{"four 100", "one 101", "three 100", "two 101"}));
}

TEST_F(Cache, FailureToWriteAFileLogsAWarningForEachOperationOfItsUUID)
{
    properties.CompletedOperations = {MakeOperation("one", 100), MakeOperation("a/b", 100),
                                      MakeOperation("two", 100), MakeOperation("one", 101)};
    auto connection = std::make_unique<DaemonConnection>();
    fs::create_directories(CacheDirectory() / "one");
    EXPECT_EQ(OutputOf([&] { connection.reset(); }),
              "[W] Couldn't open " + PathOf("one") + " to save operation\n" + "[W] Couldn't open " +
                  PathOf("a/b") + " to save operation\n" + "[W] Couldn't open " + PathOf("one") +
                  " to save operation\n");
    EXPECT_EQ(Entries(), (Strings{"one", "two"}));
}

TEST_F(Cache, TheDirectoryExistsOnlyBetweenRuns)
{
    Store("one", 10);
    const DaemonConnection connection;
    EXPECT_FALSE(fs::exists(CacheDirectory()));
}

TEST_F(Cache, AnEmptyDirectoryIsRemovedAndYieldsNothing)
{
    fs::create_directories(CacheDirectory());
    const DaemonConnection connection;
    EXPECT_TRUE(connection.GetCompletedOperations().empty());
    EXPECT_FALSE(fs::exists(CacheDirectory()));
}

TEST_F(Cache, ACorruptFileIsSkippedWithOneWarningAndRemovedWithTheDirectory)
{
    Store("good", 20);
    std::ofstream(CacheDirectory() / "bad") << "no operation";
    Store("better", 10);
    Strings completed;
    std::unique_ptr<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(log, "[W] Couldn't deserialize operation from " + PathOf("bad") + "\n");
    EXPECT_EQ(Contents(connection->GetCompletedOperations()), (Strings{"good 100", "better 100"}));
    EXPECT_FALSE(fs::exists(CacheDirectory()));
}

TEST_F(Cache, OddEntriesNeitherBlockNorAbortReading)
{
    Store("good", 20);
    ASSERT_EQ(mkfifo(PathOf("fifo").c_str(), 0600), 0);
    fs::create_directory(CacheDirectory() / "directory");
    fs::create_symlink("/dev/zero", CacheDirectory() / "device");
    Store("better", 10);
    std::unique_ptr<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(Contents(connection->GetCompletedOperations()), (Strings{"good 100", "better 100"}));
    for (const char* name : {"fifo", "directory", "device"}) {
        EXPECT_NE(log.find("[W] Couldn't deserialize operation from " + PathOf(name) + "\n"),
                  std::string::npos)
            << log;
    }
}

TEST_F(Cache, ADanglingLinkAbortsReadingAndTheDirectoryStays)
{
    Store("good", 20);
    fs::create_symlink("nowhere", CacheDirectory() / "dangling");
    std::unique_ptr<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(log.rfind("[W] Couldn't read cached completed operations (", 0), 0U) << log;
    EXPECT_EQ(log.substr(log.size() - 2), ")\n");
    EXPECT_TRUE(connection->GetCompletedOperations().empty());
    EXPECT_TRUE(fs::exists(CacheDirectory() / "good"));
}

TEST_F(Cache, ARegularFileAtTheDirectorysPathIsLeftAloneAndEverySaveFails)
{
    fs::create_directories(CacheDirectory().parent_path());
    std::ofstream(CacheDirectory()) << "content";
    properties.CompletedOperations = {MakeOperation("one", 100), MakeOperation("two", 100)};
    std::string log;
    EXPECT_EQ(Run(&log), (Strings{"one 100", "two 100"}));
    EXPECT_EQ(log, "[W] Couldn't open " + PathOf("one") + " to save operation\n" +
                       "[W] Couldn't open " + PathOf("two") + " to save operation\n");
    EXPECT_TRUE(fs::is_regular_file(CacheDirectory()));
}

TEST_F(Cache, FailureToCreateTheDirectoryLogsAWarning)
{
    std::ofstream(cacheHome.Path() / "test.app") << "in the way";
    properties.CompletedOperations = {MakeOperation("one", 100)};
    std::string log;
    Run(&log);
    EXPECT_EQ(log.rfind("[W] Couldn't create cache directory to store completed operations (", 0),
              0U)
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_EQ(log.substr(log.size() - 2), ")\n");
}

TEST_F(Cache, ASymlinkLoopInThePathStopsNeitherLoadingNorSaving)
{
    fs::create_directory_symlink("test.app", cacheHome.Path() / "test.app");
    std::string log;
    EXPECT_TRUE(Run(&log).empty());
    EXPECT_EQ(log.rfind("[W] Couldn't read cached completed operations (", 0), 0U) << log;
    EXPECT_NE(log.find("\n[W] Couldn't create cache directory to store completed operations ("),
              std::string::npos)
        << log;
}

TEST_F(Cache, FailureToRemoveTheDirectoryLogsAWarning)
{
    if (geteuid() == 0) {
        // Root can remove any directory but a mount point, and a test should not mount anything.
        // It therefore runs as another user.
        ASSERT_EQ(chmod(cacheHome.Path().c_str(), 0755), 0);
    }
    Store("one", 10);
    const fs::path parent = CacheDirectory().parent_path();
    if (geteuid() == 0) {
        for (fs::path path = CacheDirectory(); path != cacheHome.Path();
             path = path.parent_path()) {
            ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
        }
        ASSERT_EQ(chown(PathOf("one").c_str(), 65534, 65534), 0);
        ASSERT_EQ(seteuid(65534), 0);
    }
    fs::permissions(parent, fs::perms::owner_read | fs::perms::owner_exec);
    std::string log;
    std::unique_ptr<DaemonConnection> connection;
    log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(log.rfind("[W] Couldn't remove completed operations cache directory (", 0), 0U)
        << log;
    EXPECT_EQ(Contents(connection->GetCompletedOperations()), (Strings{"one 100"}));
    fs::permissions(parent, fs::perms::owner_all);
    connection.reset();
    if (getuid() == 0) {
        ASSERT_EQ(seteuid(0), 0);
    }
}

TEST_F(Cache, OperationsWhoseUUIDIsNotAPlainFileNameAreSkippedAndTheOthersStored)
{
    const std::string tooLong(300, 'x');
    const std::string zero("zero\0byte", 9);
    const Strings uuids = {"", ".", "..", "../outside", "/tmp/absolute", "a/b", zero, tooLong};
    for (const std::string& uuid : uuids) {
        properties.CompletedOperations.push_back(MakeOperation(uuid, 100));
    }
    properties.CompletedOperations.push_back(MakeOperation("good", 100));
    std::string log;
    Run(&log);
    std::string expected;
    for (const std::string& uuid : uuids) {
        expected += "[W] Couldn't open " + PathOf(uuid) + " to save operation\n";
    }
    EXPECT_EQ(log, expected);
    EXPECT_EQ(Entries(), (Strings{"good"}));
    EXPECT_FALSE(fs::exists(CacheDirectory().parent_path() / "outside"));
    EXPECT_FALSE(fs::exists("/tmp/absolute"));
}

TEST_F(Cache, ASecondConnectionFindsNoDirectoryAndBothStoreTheirOperations)
{
    Store("cached", 10);
    {
        const DaemonConnection first;
        properties.CompletedOperations = {MakeOperation("later", 100)};
        const DaemonConnection second;
        EXPECT_EQ(Contents(first.GetCompletedOperations()), (Strings{"cached 100"}));
        EXPECT_EQ(Contents(second.GetCompletedOperations()), (Strings{"later 100"}));
    }
    EXPECT_EQ(Entries(), (Strings{"cached", "later"}));
}

} // namespace
