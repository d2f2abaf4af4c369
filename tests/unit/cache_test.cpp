// SPDX-License-Identifier: BSD-3-Clause
#include "client/completed_operations_cache.h"

#include "fake_proxy.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <pwd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

bool userIsKnown = true;

using FlagsOfFiles = std::vector<std::pair<std::string, int>>;

/// Where the flags of each file that the library opens are recorded, if anywhere.
FlagsOfFiles* opened = nullptr;

void Record(const char* path, int flags)
{
    if (opened != nullptr) {
        opened->emplace_back(path, flags);
    }
}

/// What happens before the library removes a file.
std::function<void(const char*)> beforeRemoval;

} // namespace

extern "C" {
int __real_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** found);
int __wrap_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** found)
{
    if (userIsKnown) {
        return __real_getpwuid_r(user, entry, buffer, size, found);
    }
    *found = nullptr;
    return 0;
}

// A program with large-file support calls the second of these, a fortified one the last two. The mode is
// unspecified, and not used, unless the file is to be created.
int __real_open(const char* path, int flags, mode_t mode);
int __real_open64(const char* path, int flags, mode_t mode);
int __real___open_2(const char* path, int flags);
int __real___open64_2(const char* path, int flags);

int __wrap_open(const char* path, int flags, mode_t mode)
{
    Record(path, flags);
    return __real_open(path, flags, mode);
}

int __wrap_open64(const char* path, int flags, mode_t mode)
{
    Record(path, flags);
    return __real_open64(path, flags, mode);
}

int __wrap___open_2(const char* path, int flags)
{
    Record(path, flags);
    return __real___open_2(path, flags);
}

int __wrap___open64_2(const char* path, int flags)
{
    Record(path, flags);
    return __real___open64_2(path, flags);
}

decltype(unlink) __real_unlink;
int __wrap_unlink(const char* path)
{
    if (beforeRemoval) {
        beforeRemoval(path);
    }
    return __real_unlink(path);
}
}

namespace {

namespace fs = std::filesystem;
using namespace Emporium;
using namespace TestSupport;

/// Acts as an ordinary user while this object lives: the kernel does not check permissions for root.
class AsAnOrdinaryUser
{
public:
    explicit AsAnOrdinaryUser(const fs::path& home)
    {
        if (m_isRoot) {
            EXPECT_EQ(chown(home.c_str(), nobody, nobody), 0);
            EXPECT_EQ(seteuid(nobody), 0);
        }
    }
    AsAnOrdinaryUser(const AsAnOrdinaryUser&) = delete;
    AsAnOrdinaryUser& operator=(const AsAnOrdinaryUser&) = delete;
    ~AsAnOrdinaryUser()
    {
        if (m_isRoot) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

private:
    static constexpr uid_t nobody = 65534;
    const bool m_isRoot = geteuid() == 0;
};

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

    /// Returns the files that a connection writes on destruction, in the order in which they appear.
    Strings FilesWritten()
    {
        auto connection = std::make_unique<DaemonConnection>();
        fs::create_directories(CacheDirectory());
        const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        inotify_add_watch(events, CacheDirectory().c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
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

    /// Names in the parent of the cache directory.
    Strings Siblings() const
    {
        Strings siblings;
        for (const auto& entry : fs::directory_iterator(CacheDirectory().parent_path())) {
            siblings.push_back(entry.path().filename().string());
        }
        std::sort(siblings.begin(), siblings.end());
        return siblings;
    }

    fs::path PrivatePath(const std::string& purpose, const std::string& number) const
    {
        return CacheDirectory().string() + "." + purpose + "-" + number;
    }

    static void Append(std::vector<Operation>& all, const std::vector<Operation>& more)
    {
        all.insert(all.end(), more.begin(), more.end());
    }

    std::string PathOf(const std::string& name) const
    {
        return CacheDirectory().string() + "/" + name;
    }

    /// Adds a file to the directory of each file that the library removes, at most this many.
    static void AddFilesDuringRemoval(int most)
    {
        beforeRemoval = [most, added = 0](const char* path) mutable {
            if (added < most) {
                const std::string name = "added" + std::to_string(++added);
                const fs::path file = fs::path(path).parent_path() / name;
                EXPECT_TRUE(static_cast<bool>(MakeOperation(name, 100).SaveToFile(file.string())));
            }
        };
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
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
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
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"})) << "no half-written file is left";
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
    EXPECT_EQ(Siblings(), Strings()) << "all of them are removed";
}

TEST_F(Cache, DamagedFilesAreReportedFromTheOldestToTheNewest)
{
    std::string expected;
    fs::create_directories(CacheDirectory());
    for (int age = 8; age > 0; --age) {
        const std::string name = std::to_string(age * 5 % 9); // in another order than by name
        std::ofstream(PathOf(name)) << "no operation";
        fs::last_write_time(PathOf(name),
                            fs::file_time_type::clock::now() - std::chrono::seconds(age));
        expected += "[W] Couldn't deserialize operation from " + PathOf(name) + "\n";
    }
    std::string log;
    EXPECT_EQ(Run(&log), Strings());
    EXPECT_EQ(log, expected);
}

TEST_F(Cache, AFileThatIsAddedDuringTheRemovalIsReadAndRemovedToo)
{
    Store("one", 10);
    AddFilesDuringRemoval(1);
    const DaemonConnection connection;
    beforeRemoval = nullptr;
    EXPECT_EQ(Contents(connection.GetCompletedOperations()), (Strings{"one 100", "added1 100"}));
    EXPECT_EQ(Siblings(), Strings());
}

TEST_F(Cache, ADirectoryThatIsFilledWithoutEndIsLeftInPlaceWithAWarning)
{
    Store("one", 10);
    constexpr int endless = 100;
    AddFilesDuringRemoval(endless);
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection.emplace(); });
    beforeRemoval = nullptr;
    EXPECT_EQ(log.rfind("[W] Couldn't remove completed operations cache directory (", 0), 0U)
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_LT(connection->GetCompletedOperations().size(), std::size_t{endless});
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
}

TEST_F(Cache, ADanglingLinkThatIsAddedDuringTheRemovalLeavesTheDirectoryInPlace)
{
    Store("one", 10);
    beforeRemoval = [](const char* path) {
        fs::create_symlink("nowhere", fs::path(path).parent_path() / "dangling");
    };
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection.emplace(); });
    beforeRemoval = nullptr;
    EXPECT_EQ(log.rfind("[W] Couldn't read cached completed operations (", 0), 0U) << log;
    EXPECT_EQ(Contents(connection->GetCompletedOperations()), (Strings{"one 100"}));
    EXPECT_EQ(Entries(), (Strings{"dangling"}));
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
}

TEST_F(Cache, ADanglingLinkAbortsReadingAndTheDirectoryStays)
{
    Store("good", 20);
    fs::create_symlink("nowhere", CacheDirectory() / "dangling");
    std::unique_ptr<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(log.rfind("[W] Couldn't read cached completed operations (", 0), 0U) << log;
    EXPECT_EQ(log.substr(log.size() - 2), ")\n");
    EXPECT_NE(log.find(PathOf("dangling")), std::string::npos) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_TRUE(connection->GetCompletedOperations().empty());
    EXPECT_EQ(Entries(), (Strings{"dangling", "good"}));
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
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

TEST_F(Cache, WithoutAHomeThereIsAWarningAtTheStartAndOneAtTheEnd)
{
    properties.CompletedOperations = {MakeOperation("one", 100)};
    unsetenv("XDG_CACHE_HOME");
    setenv("HOME", "not absolute", 1);
    userIsKnown = false;
    std::string log;
    const Strings completed = Run(&log);
    userIsKnown = true;
    EXPECT_EQ(completed, (Strings{"one 100"}));
    EXPECT_EQ(log, "[W] Couldn't read cached completed operations (Couldn't locate the home "
                   "directory)\n"
                   "[W] Couldn't create cache directory to store completed operations (Couldn't "
                   "locate the home directory)\n");
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

TEST_F(Cache, FilesThatCannotBeRemovedAreReadOnceWithOneWarning)
{
    const AsAnOrdinaryUser user(cacheHome.Path());
    Store("one", 10);
    fs::permissions(CacheDirectory(), fs::perms::owner_read | fs::perms::owner_exec);
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection.emplace(); });
    fs::permissions(CacheDirectory(), fs::perms::owner_all);
    EXPECT_EQ(log, "[W] Couldn't remove completed operations cache directory (filesystem error: "
                   "cannot remove all: Permission denied [" +
                       CacheDirectory().string() + "])\n");
    EXPECT_EQ(Contents(connection->GetCompletedOperations()), (Strings{"one 100"}));
}

TEST_F(Cache, OperationsWhoseUUIDIsNotAPlainFileNameAreSkippedAndTheOthersStored)
{
    const std::string tooLong(300, 'x');
    const std::string zero("zero\0byte", 9);
    const std::string absolute = (cacheHome.Path() / "absolute").string();
    const Strings uuids = {"", ".", "..", "../outside", absolute, "a/b", zero, tooLong};
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
    EXPECT_FALSE(fs::exists(absolute));
}

/// One process ends and two start, many times: each operation is read once, or is still on the disk.
TEST_F(Cache, NothingIsLostWhereOneWritesAndTwoReadAtTheSameTime)
{
    std::vector<Operation> operations;
    Strings expected;
    for (int number = 100; number < 200; ++number) {
        operations.push_back(MakeOperation(std::to_string(number), 100));
        expected.push_back(std::to_string(number) + " 100");
    }
    const std::string log = OutputOf([&] {
        for (int round = 0; round < 10; ++round) {
            std::atomic<bool> written = false;
            std::array<std::vector<Operation>, 2> read;
            std::vector<std::thread> readers;
            for (std::vector<Operation>& mine : read) {
                readers.emplace_back([&] {
                    while (!written) {
                        std::this_thread::sleep_for(std::chrono::microseconds(200));
                        Append(mine, CompletedOperationsCache::ReadAndRemove());
                    }
                });
            }
            CompletedOperationsCache::Write(operations);
            written = true;
            for (std::thread& reader : readers) {
                reader.join();
            }
            Append(read[0], read[1]);
            Append(read[0], CompletedOperationsCache::ReadAndRemove());
            Strings found = Contents(read[0]);
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, expected);
            EXPECT_EQ(Siblings(), Strings());
        }
    });
    EXPECT_EQ(log, "");
}

TEST_F(Cache, ADirectoryLeftByACrashDuringReadingIsReadInOrderAndRemoved)
{
    Store("second", 20);
    fs::rename(CacheDirectory(), PrivatePath("reading", "1"));
    Store("third", 10);
    std::ofstream(CacheDirectory() / "bad") << "no operation";
    fs::rename(CacheDirectory(), PrivatePath("reading", "2"));
    Store("first", 30);
    Store("fourth", 5);
    std::unique_ptr<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = std::make_unique<DaemonConnection>(); });
    EXPECT_EQ(Contents(connection->GetCompletedOperations()),
              (Strings{"first 100", "second 100", "third 100", "fourth 100"}));
    EXPECT_EQ(log, "[W] Couldn't deserialize operation from " + PathOf("bad") + "\n");
    EXPECT_EQ(Siblings(), Strings());
}

TEST_F(Cache, ADirectoryLeftByACrashIsReadAlsoWithoutACacheDirectory)
{
    Store("one", 20);
    fs::rename(CacheDirectory(), PrivatePath("reading", "1"));
    EXPECT_EQ(Run(), (Strings{"one 100"}));
}

TEST_F(Cache, ADirectoryThatAnotherProcessReadsIsLeftToIt)
{
    Store("one", 20);
    const fs::path other = PrivatePath("reading", "1");
    fs::rename(CacheDirectory(), other);
    const int lock = open(other.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(Run(), Strings());
    EXPECT_TRUE(fs::exists(other / "one"));
    close(lock);
    EXPECT_EQ(Run(), (Strings{"one 100"}));
}

TEST_F(Cache, AHalfWrittenFileLeftByACrashIsRemovedAndNotRead)
{
    const fs::path crashed = PrivatePath("writing", "1");
    const fs::path busy = PrivatePath("writing", "2");
    fs::create_directories(crashed);
    fs::create_directories(busy);
    std::ofstream(crashed / "operation") << "half";
    const int lock = open(busy.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
    std::string log;
    EXPECT_EQ(Run(&log), Strings());
    EXPECT_EQ(log, "");
    EXPECT_FALSE(fs::exists(crashed));
    EXPECT_TRUE(fs::exists(busy)) << "another process is writing";
    close(lock);
}

TEST_F(Cache, IfNothingCanBeCreatedNextToTheDirectoryTheFilesAreStillWritten)
{
    const AsAnOrdinaryUser user(cacheHome.Path());
    properties.CompletedOperations = {MakeOperation("one", 100)};
    auto connection = std::make_unique<DaemonConnection>();
    fs::create_directories(CacheDirectory());
    fs::permissions(CacheDirectory().parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(OutputOf([&] { connection.reset(); }), "");
    fs::permissions(CacheDirectory().parent_path(), fs::perms::owner_all);
    EXPECT_EQ(Entries(), (Strings{"one"}));
}

TEST_F(Cache, ALinkUnderAUUIDsNameIsReplacedAndNotFollowed)
{
    properties.CompletedOperations = {MakeOperation("one", 100)};
    auto connection = std::make_unique<DaemonConnection>();
    const fs::path target = cacheHome.Path() / "target";
    std::ofstream(target) << "precious";
    fs::create_directories(CacheDirectory());
    fs::create_symlink(target, CacheDirectory() / "one");
    EXPECT_EQ(OutputOf([&] { connection.reset(); }), "");
    EXPECT_EQ(fs::file_size(target), 8U);
    EXPECT_FALSE(fs::is_symlink(CacheDirectory() / "one"));
}

TEST_F(Cache, ALinkUnderAUUIDsNameIsNotFollowedWhereTheFileCannotBeMovedIntoPlace)
{
    const AsAnOrdinaryUser user(cacheHome.Path());
    properties.CompletedOperations = {MakeOperation("one", 100)};
    auto connection = std::make_unique<DaemonConnection>();
    const fs::path target = cacheHome.Path() / "target";
    std::ofstream(target) << "precious";
    fs::create_directories(CacheDirectory());
    fs::create_symlink(target, CacheDirectory() / "one");
    fs::permissions(CacheDirectory().parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(OutputOf([&] { connection.reset(); }),
              "[W] Couldn't open " + PathOf("one") + " to save operation\n");
    fs::permissions(CacheDirectory().parent_path(), fs::perms::owner_all);
    EXPECT_EQ(fs::file_size(target), 8U);
}

TEST_F(Cache, ANewFilesModeFollowsTheUmask)
{
    properties.CompletedOperations = {MakeOperation("one", 100)};
    const mode_t former = umask(027);
    Run();
    umask(former);
    EXPECT_EQ(fs::status(CacheDirectory() / "one").permissions(), static_cast<fs::perms>(0640));
}

TEST_F(Cache, EveryDescriptorIsClosedOnExec)
{
    Store("cached", 10);
    FlagsOfFiles all;
    OutputOf([&] {
        const int input = dup(STDIN_FILENO);
        close(STDIN_FILENO);
        opened = &all;
        {
            const DaemonConnection connection;
        }
        opened = nullptr;
        dup2(input, STDIN_FILENO);
        close(input);
    });
    Strings paths;
    for (const auto& [path, flags] : all) {
        paths.push_back(path);
        EXPECT_NE(flags & O_CLOEXEC, 0) << path;
    }
    EXPECT_GE(std::ranges::count(paths, "/dev/null"), 2) << "for standard input";
    const auto isIn = [&](const std::string& purpose, const std::string& name) {
        const std::string prefix = CacheDirectory().string() + "." + purpose + "-";
        return std::ranges::any_of(paths, [&](const std::string& path) {
            return path.starts_with(prefix) && path.ends_with(name);
        });
    };
    EXPECT_TRUE(isIn("reading", "/cached"));
    EXPECT_TRUE(isIn("writing", "/operation"));
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
