// SPDX-License-Identifier: BSD-3-Clause
//
// The cache of completed operations: processes that are killed, full and read-only disks, two processes
// at once, and a file, a link or a directory without permission at the path of its directory.

#include "client/completed_operations_cache.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <sched.h>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace Emporium;
using namespace TestSupport;

using Strings = std::vector<std::string>;

std::vector<Operation> Operations(const Strings& uuids)
{
    std::vector<Operation> operations;
    for (const std::string& uuid : uuids) {
        operations.emplace_back(uuid, "package", Common::OperationType::Install,
                                Common::OperationStatus::Succeeded, Common::ErrorCode::None);
    }
    return operations;
}

class CacheFaults : public testing::Test
{
protected:
    CacheFaults() { setenv("VEYRA_APP_ID", "test.app", 1); }

    fs::path Parent() const { return cacheHome.Path() / "test.app" / "emporium-api"; }
    fs::path Directory() const { return Parent() / "completed-operations"; }
    std::string PathOf(const std::string& name) const { return (Directory() / name).string(); }

    static void Write(const Strings& uuids) { CompletedOperationsCache::Write(Operations(uuids)); }

    /// What the next start of the application reads, sorted.
    static Strings Read()
    {
        Strings uuids;
        for (const Operation& operation : CompletedOperationsCache::ReadAndRemove()) {
            uuids.push_back(operation.GetUUID());
        }
        std::sort(uuids.begin(), uuids.end());
        return uuids;
    }

    static Strings NamesIn(const fs::path& directory)
    {
        Strings names;
        if (fs::exists(directory)) {
            for (const auto& entry : fs::directory_iterator(directory)) {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    Strings Siblings() const { return NamesIn(Parent()); }

    CacheHome cacheHome;
};

// --- kill -9 ---

/// Runs an action in a child process and kills it before one of its system calls.
class KilledProcess
{
public:
    /// False if the system does not let a process trace its child.
    template <typename Action>
    bool Run(int lastCall, Action action)
    {
        m_opened.clear();
        m_openedBeforeRemoval.reset();
        m_child = fork();
        if (m_child == 0) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
                _exit(1);
            }
            raise(SIGSTOP);
            action();
            _exit(0);
        }
        int status = 0;
        waitpid(m_child, &status, 0);
        if (!WIFSTOPPED(status)) {
            return false;
        }
        ptrace(PTRACE_SETOPTIONS, m_child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
        Continue(lastCall);
        return true;
    }

    /// False if the action made fewer calls.
    bool IsKilled() const { return m_killed; }

    /// The names of the files that had been opened when the first one was removed.
    const std::optional<Strings>& OpenedBeforeRemoval() const { return m_openedBeforeRemoval; }

private:
    void Continue(int lastCall)
    {
        m_killed = false;
        int calls = 0;
        int status = 0;
        while (ptrace(PTRACE_SYSCALL, m_child, nullptr, nullptr) == 0 &&
               waitpid(m_child, &status, 0) == m_child && WIFSTOPPED(status)) {
            __ptrace_syscall_info call{};
            ptrace(PTRACE_GET_SYSCALL_INFO, m_child, sizeof call, &call);
            if (call.op != PTRACE_SYSCALL_INFO_ENTRY) {
                continue;
            }
            Note(call);
            const bool isEnd = call.entry.nr == SYS_exit_group;
            if (!isEnd && calls++ == lastCall) {
                m_killed = true;
                kill(m_child, SIGKILL); // the call is not executed
                waitpid(m_child, &status, 0);
                break;
            }
        }
        EXPECT_EQ(WIFSIGNALED(status), m_killed);
    }

    void Note(const __ptrace_syscall_info& call)
    {
        if (call.entry.nr == SYS_openat) {
            m_opened.push_back(fs::path(TextAt(call.entry.args[1])).filename().string());
        }
        if (IsRemovalOfAnOperation(call) && !m_openedBeforeRemoval) {
            m_openedBeforeRemoval = m_opened;
        }
    }

    /// The UUIDs of the tests have one character.
    bool IsRemovalOfAnOperation(const __ptrace_syscall_info& call) const
    {
#ifdef SYS_unlink
        if (call.entry.nr == SYS_unlink) {
            return fs::path(TextAt(call.entry.args[0])).filename().native().size() == 1;
        }
#endif
        return call.entry.nr == SYS_unlinkat &&
               fs::path(TextAt(call.entry.args[1])).filename().native().size() == 1;
    }

    std::string TextAt(std::uint64_t address) const
    {
        std::string text;
        while (true) {
            errno = 0;
            const long word = ptrace(PTRACE_PEEKDATA, m_child, address + text.size(), nullptr);
            if (errno != 0) {
                return text;
            }
            for (std::size_t byte = 0; byte < sizeof word; ++byte) {
                const char character = static_cast<char>(word >> (8 * byte));
                if (character == '\0') {
                    return text;
                }
                text += character;
            }
        }
    }

    pid_t m_child = -1;
    bool m_killed = false;
    Strings m_opened;
    std::optional<Strings> m_openedBeforeRemoval;
};

class CacheOfAKilledProcess : public CacheFaults
{
protected:
    /// Prepares the cache with `prepare`, then kills `action` before each of its system calls in turn.
    template <typename Prepare, typename Action, typename Check>
    void KillAtEachCall(Prepare prepare, Action action, Check check)
    {
        int call = 0;
        do {
            fs::remove_all(Parent());
            prepare();
            if (!m_process.Run(call, action)) {
                GTEST_SKIP() << "a process may not trace its child here";
            }
            check(call);
            ++call;
        } while (m_process.IsKilled() && !HasFailure());
        std::cout << "killed at " << call - 1 << " system calls\n";
        EXPECT_GT(call, 20);
    }

    /// All operations in files that a later start reads, sorted.
    Strings OnDisk() const
    {
        Strings names;
        for (const std::string& name : Siblings()) {
            if (name.find(".writing-") == std::string::npos) {
                const Strings more = NamesIn(Parent() / name);
                names.insert(names.end(), more.begin(), more.end());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static bool Contains(const Strings& names, const std::string& name)
    {
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    KilledProcess m_process;
};

TEST_F(CacheOfAKilledProcess, LosesNothingUntilAllOfItIsRead)
{
    const Strings all = {"1", "2", "3", "4", "5"};
    const auto prepare = [&] {
        Write({"1", "2"});
        fs::rename(Directory(), Directory().string() + ".reading-1"); // of an earlier crash
        Write({"3", "4", "5"});
        fs::create_directory(Directory().string() + ".writing-1");
        std::ofstream(Directory().string() + ".writing-1/operation") << "half";
    };
    KillAtEachCall(
        prepare, [] { CompletedOperationsCache::ReadAndRemove(); },
        [&](int call) {
            const Strings left = OnDisk();
            if (left != all) {
                ASSERT_TRUE(m_process.OpenedBeforeRemoval()) << call;
                for (const std::string& uuid : all) {
                    EXPECT_TRUE(Contains(*m_process.OpenedBeforeRemoval(), uuid))
                        << call << ": a file is removed before " << uuid << " is read";
                }
            }
            Strings found;
            EXPECT_EQ(OutputOf([&] { found = Read(); }), "") << call;
            EXPECT_EQ(found, left) << call << ": each one once";
            EXPECT_EQ(Siblings(), Strings()) << call;
        });
}

TEST_F(CacheOfAKilledProcess, HoldsWholeFilesOfTheOperationsThatWereWrittenAndOfThoseBefore)
{
    const Strings written = {"1", "2", "3", "4"};
    KillAtEachCall(
        [&] {
            Write({"2", "earlier"}); // by another instance
        },
        [&] { Write(written); },
        [&](int call) {
            const Strings left = OnDisk();
            EXPECT_TRUE(Contains(left, "2") && Contains(left, "earlier")) << call;
            EXPECT_EQ(Contains(left, "4"), left.size() == 5) << "in their order";
            Strings found;
            EXPECT_EQ(OutputOf([&] { found = Read(); }), "") << call << ": no half file";
            EXPECT_EQ(found, left) << call;
            EXPECT_EQ(Siblings(), Strings()) << call;
        });
}

TEST_F(CacheOfAKilledProcess, IsCreatedByTheNextOneWhereTheFirstWriteWasInterrupted)
{
    KillAtEachCall([] {}, [] { Write({"1", "2"}); },
                   [&](int call) {
                       Write({"later"});
                       const Strings found = Read();
                       EXPECT_TRUE(Contains(found, "later")) << call;
                       EXPECT_LE(found.size(), 3U) << call;
                       EXPECT_EQ(Siblings(), Strings()) << call;
                   });
}

// --- another file at the path of the directory ---

TEST_F(CacheFaults, ALinkToADirectoryIsReadAndReplacedAndWhatItPointsToStays)
{
    const fs::path target = cacheHome.Path() / "target";
    Write({"one"});
    fs::rename(Directory(), target);
    fs::create_directory(target / "subdirectory");
    std::ofstream(target / "subdirectory" / "precious") << "content";
    fs::create_directory_symlink(target, Directory());
    const Strings before = NamesIn(target);
    Strings found;
    EXPECT_EQ(OutputOf([&] { found = Read(); }),
              "[W] Couldn't deserialize operation from " + PathOf("subdirectory") + "\n");
    EXPECT_EQ(found, (Strings{"one"}));
    EXPECT_EQ(NamesIn(target), before);
    EXPECT_TRUE(fs::exists(target / "subdirectory" / "precious"));
    EXPECT_EQ(Siblings(), Strings());
    Write({"two"});
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(Directory())));
    EXPECT_EQ(Read(), (Strings{"two"}));
}

TEST_F(CacheFaults, AFileInPlaceOfTheDirectoryIsKeptAndStorageWorksAfterItsRemoval)
{
    Write({"one"});
    Read();
    std::ofstream(Directory()) << "content";
    EXPECT_EQ(Read(), Strings());
    EXPECT_EQ(OutputOf([] { Write({"two", "three"}); }),
              "[W] Couldn't open " + PathOf("two") + " to save operation\n" + "[W] Couldn't open " +
                  PathOf("three") + " to save operation\n");
    EXPECT_EQ(fs::file_size(Directory()), 7U);
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
    fs::remove(Directory());
    Write({"four"});
    EXPECT_EQ(Read(), (Strings{"four"}));
}

TEST_F(CacheFaults, ALinkToNothingIsKeptAndStorageIsOneWarning)
{
    fs::create_directories(Parent());
    fs::create_symlink("nowhere", Directory());
    EXPECT_EQ(Read(), Strings());
    const std::string log = OutputOf([] { Write({"one", "two"}); });
    EXPECT_EQ(log.rfind("[W] Couldn't create cache directory to store completed operations (", 0),
              0U)
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
}

/// Runs an action as a user for whom permissions count, and returns its output.
template <typename Action>
std::string OutputOfAnOrdinaryUser(const fs::path& home, Action action)
{
    constexpr uid_t nobody = 65534;
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        EXPECT_EQ(chown(home.c_str(), nobody, nobody), 0);
        EXPECT_EQ(seteuid(nobody), 0);
    }
    const std::string output = OutputOf(action);
    if (isRoot) {
        EXPECT_EQ(seteuid(0), 0);
    }
    return output;
}

TEST_F(CacheFaults, ADirectoryWithoutPermissionIsKeptWithOneWarningForEachFailure)
{
    const std::string log = OutputOfAnOrdinaryUser(cacheHome.Path(), [&] {
        Write({"one"});
        fs::permissions(Directory(), fs::perms::none);
        EXPECT_EQ(Read(), Strings());
        Write({"two"});
        fs::permissions(Directory(), fs::perms::owner_all);
        EXPECT_EQ(Read(), (Strings{"one"}));
        EXPECT_EQ(Siblings(), Strings());
    });
    EXPECT_EQ(log, "[W] Couldn't read cached completed operations (filesystem error: directory "
                   "iterator cannot open directory: Permission denied [" +
                       Directory().string() + "])\n" + "[W] Couldn't open " + PathOf("two") +
                       " to save operation\n");
}

TEST_F(CacheFaults, AnUnreachableDirectoryIsKeptWithOneWarningForEachFailure)
{
    const std::string log = OutputOfAnOrdinaryUser(cacheHome.Path(), [&] {
        Write({"one"});
        fs::permissions(Parent(), fs::perms::none);
        EXPECT_EQ(Read(), Strings());
        Write({"two"});
        fs::permissions(Parent(), fs::perms::owner_all);
        EXPECT_EQ(Read(), (Strings{"one"}));
        EXPECT_EQ(Siblings(), Strings());
    });
    EXPECT_EQ(log, "[W] Couldn't read cached completed operations (filesystem error: status: "
                   "Permission denied [" +
                       Directory().string() + "])\n" +
                       "[W] Couldn't create cache directory to store completed operations "
                       "(filesystem error: status: Permission denied [" +
                       Directory().string() + "])\n");
}

// --- disks ---

bool WriteText(const char* path, const std::string& text)
{
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

/// Runs an action in a child process with a file system of its own at `directory`. The child's
/// failures are printed and become those of this test.
template <typename Action>
void RunOnDisk(const fs::path& directory, const char* options, Action action)
{
    fs::create_directories(directory);
    constexpr int notAvailable = 77;
    const pid_t child = fork();
    if (child == 0) {
        const std::string uid = std::to_string(geteuid());
        const std::string gid = std::to_string(getegid());
        const bool isAlone = unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
                             WriteText("/proc/self/setgroups", "deny") &&
                             WriteText("/proc/self/uid_map", "0 " + uid + " 1") &&
                             WriteText("/proc/self/gid_map", "0 " + gid + " 1") &&
                             mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount("none", directory.c_str(), "tmpfs", 0, options) == 0;
        if (!isAlone) {
            _exit(notAvailable);
        }
        action();
        std::cout << std::flush;
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == notAvailable) {
        GTEST_SKIP() << "a process may not mount a file system for itself here";
    }
    EXPECT_EQ(status, 0);
}

/// Writes to a file until the disk is full.
void Fill(const fs::path& path)
{
    std::ofstream file(path, std::ios::binary);
    const std::string page(4096, 'x');
    while (file.write(page.data(), static_cast<std::streamsize>(page.size())).flush()) {
    }
}

/// UUIDs whose order is that of the numbers.
Strings Numbers(int count)
{
    constexpr int first = 1000;
    Strings uuids;
    for (int number = 0; number < count; ++number) {
        uuids.push_back(std::to_string(first + number));
    }
    return uuids;
}

std::string SaveWarnings(const fs::path& directory, const Strings& uuids)
{
    std::string warnings;
    for (const std::string& uuid : uuids) {
        warnings += "[W] Couldn't open " + (directory / uuid).string() + " to save operation\n";
    }
    return warnings;
}

TEST_F(CacheFaults, OnADiskThatFillsUpEachOperationIsStoredWholeOrWarnedOf)
{
    const Strings all = Numbers(40);
    RunOnDisk(cacheHome.Path() / "test.app", "size=64k", [&] {
        const std::string log = OutputOf([&] { Write(all); });
        const Strings stored = NamesIn(Directory());
        ASSERT_GT(stored.size(), 1U);
        ASSERT_LT(stored.size(), all.size());
        const auto count = static_cast<std::ptrdiff_t>(stored.size());
        EXPECT_EQ(stored, Strings(all.begin(), all.begin() + count));
        std::string warnings;
        for (const std::string& uuid : Strings(all.begin() + count, all.end())) {
            warnings += "[W] Couldn't serialize operation to " + PathOf(uuid) + "\n";
        }
        EXPECT_EQ(log, warnings);
        EXPECT_EQ(Siblings(), (Strings{"completed-operations"}));
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(Read(), stored); }), "");
        EXPECT_EQ(OutputOf([&] { Write({"later"}); }), "") << "there is room again";
    });
}

TEST_F(CacheFaults, OnAFullDiskWhatIsThereStaysAndIsReadAndRemoved)
{
    RunOnDisk(cacheHome.Path() / "test.app", "size=64k", [&] {
        Write({"one", "two"});
        Fill(cacheHome.Path() / "test.app" / "other");
        EXPECT_EQ(OutputOf([&] { Write({"two", "three"}); }),
                  "[W] Couldn't serialize operation to " + PathOf("two") + "\n" +
                      "[W] Couldn't serialize operation to " + PathOf("three") + "\n");
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(Read(), (Strings{"one", "two"})); }), "");
        EXPECT_EQ(Siblings(), Strings());
    });
}

TEST_F(CacheFaults, OnADiskWithoutRoomForAnotherFileEachOperationIsStoredWholeOrWarnedOf)
{
    RunOnDisk(cacheHome.Path() / "test.app", "nr_inodes=10", [&] {
        const Strings all = Numbers(20);
        const std::string log = OutputOf([&] { Write(all); });
        const Strings stored = NamesIn(Directory());
        const auto count = static_cast<std::ptrdiff_t>(stored.size());
        EXPECT_EQ(stored, Strings(all.begin(), all.begin() + count));
        EXPECT_GT(count, 1);
        EXPECT_EQ(log, SaveWarnings(Directory(), Strings(all.begin() + count, all.end())));
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(Read(), stored); }), "");
        EXPECT_EQ(Siblings(), Strings());
    });
}

TEST_F(CacheFaults, OnAReadOnlyDiskOperationsAreReadAtEachStartAndWarnedOf)
{
    RunOnDisk(cacheHome.Path() / "test.app", "size=64k", [&] {
        Write({"one", "two"});
        const fs::path disk = cacheHome.Path() / "test.app";
        ASSERT_EQ(mount("none", disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        for (int start = 0; start < 2; ++start) {
            EXPECT_EQ(OutputOf([&] { EXPECT_EQ(Read(), (Strings{"one", "two"})); }),
                      "[W] Couldn't remove completed operations cache directory (filesystem error: "
                      "cannot remove all: Read-only file system [" +
                          Directory().string() + "])\n");
            EXPECT_EQ(OutputOf([&] { Write({"two", "three"}); }),
                      SaveWarnings(Directory(), {"two", "three"}));
        }
        ASSERT_EQ(mount("none", disk.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
        EXPECT_EQ(Read(), (Strings{"one", "two"}));
        EXPECT_EQ(Siblings(), Strings());
    });
}

TEST_F(CacheFaults, OnAReadOnlyDiskWithoutTheDirectoryStorageIsOneWarning)
{
    RunOnDisk(cacheHome.Path() / "test.app", "size=64k", [&] {
        const fs::path disk = cacheHome.Path() / "test.app";
        ASSERT_EQ(mount("none", disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(Read(), Strings()); }), "");
        const std::string log = OutputOf([&] { Write({"one", "two"}); });
        EXPECT_EQ(
            log.rfind("[W] Couldn't create cache directory to store completed operations (", 0), 0U)
            << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    });
}

// --- two processes ---

/// Runs an action in a child process, and returns what it prints.
class OtherProcess
{
public:
    template <typename Action>
    explicit OtherProcess(Action action)
    {
        std::cout << std::flush;
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_child = fork();
        if (m_child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            action();
            std::cout << std::flush;
            _exit(0);
        }
        close(ends[1]);
        m_output = ends[0];
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess() { close(m_output); }

    std::string Output() const
    {
        std::string text;
        char character = '\0';
        while (read(m_output, &character, 1) == 1) {
            text += character;
        }
        int status = 0;
        waitpid(m_child, &status, 0);
        EXPECT_EQ(status, 0);
        return text;
    }

private:
    pid_t m_child = -1;
    int m_output = -1;
};

TEST_F(CacheFaults, OfTwoProcessesThatEndAndOneThatStartsEachOperationIsReadOnce)
{
    constexpr int rounds = 50;
    const Strings mine = Numbers(30);
    const Strings theirs = {"a", "b", "c"};
    for (int round = 0; round < rounds; ++round) {
        Strings expected = mine;
        expected.insert(expected.end(), theirs.begin(), theirs.end());
        const OtherProcess first([&] { Write(mine); });
        const OtherProcess second([&] { Write(theirs); });
        const OtherProcess starting([&] {
            constexpr int starts = 5;
            for (int start = 0; start < starts; ++start) {
                for (const std::string& uuid : Read()) {
                    std::cout << uuid << '\n';
                }
            }
        });
        ASSERT_EQ(first.Output() + second.Output(), "") << round;
        std::istringstream lines(starting.Output());
        Strings found = Read();
        for (std::string line; std::getline(lines, line);) {
            found.push_back(line);
        }
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found, expected) << round;
        ASSERT_EQ(Siblings(), Strings()) << round;
    }
}

} // namespace
