// SPDX-License-Identifier: BSD-3-Clause
#include "model/operation_file.h"

#include "support/sanitizers.h"
#include "support/temporary_directory.h"

#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

// What happens in place of the system call, if anything.
int failureOfOpen = 0;
std::function<ssize_t(int file, char* content, std::size_t size)> insteadOfRead;
std::function<ssize_t(int file, const char* content, std::size_t size)> insteadOfWrite;

} // namespace

extern "C" {
decltype(read) __real_read;
ssize_t __wrap_read(int file, void* content, std::size_t size)
{
    return insteadOfRead ? insteadOfRead(file, static_cast<char*>(content), size)
                         : __real_read(file, content, size);
}

// A fortified program calls this one where it knows the size of the memory.
ssize_t __real___read_chk(int file, void* content, std::size_t size, std::size_t memory);
ssize_t __wrap___read_chk(int file, void* content, std::size_t size, std::size_t memory)
{
    return insteadOfRead ? insteadOfRead(file, static_cast<char*>(content), size)
                         : __real___read_chk(file, content, size, memory);
}

decltype(write) __real_write;
ssize_t __wrap_write(int file, const void* content, std::size_t size)
{
    return insteadOfWrite ? insteadOfWrite(file, static_cast<const char*>(content), size)
                          : __real_write(file, content, size);
}

// A program with large-file support calls the second of these, a fortified one the last two. The mode is
// unspecified, and not used, unless the file is to be created.
int __real_open(const char* path, int flags, mode_t mode);
int __real_open64(const char* path, int flags, mode_t mode);
int __real___open_2(const char* path, int flags);
int __real___open64_2(const char* path, int flags);

int __wrap_open(const char* path, int flags, mode_t mode)
{
    errno = failureOfOpen;
    return failureOfOpen == 0 ? __real_open(path, flags, mode) : -1;
}

int __wrap_open64(const char* path, int flags, mode_t mode)
{
    errno = failureOfOpen;
    return failureOfOpen == 0 ? __real_open64(path, flags, mode) : -1;
}

int __wrap___open_2(const char* path, int flags)
{
    errno = failureOfOpen;
    return failureOfOpen == 0 ? __real___open_2(path, flags) : -1;
}

int __wrap___open64_2(const char* path, int flags)
{
    errno = failureOfOpen;
    return failureOfOpen == 0 ? __real___open64_2(path, flags) : -1;
}
}

namespace {

using namespace Emporium;

/// The failure of a system call.
int FailWith(int error)
{
    errno = error;
    return -1;
}

class OperationFile : public testing::Test
{
protected:
    ~OperationFile() override
    {
        failureOfOpen = 0;
        insteadOfRead = nullptr;
        insteadOfWrite = nullptr;
    }

    std::string PathOf(const char* name) const { return (directory.Path() / name).string(); }

    static std::string Read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static void Write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }

    void ExpectDamaged(const std::string& content)
    {
        Write(path, content);
        const Result<Operation> result = Operation::FromFile(path);
        ASSERT_TRUE(result.HasError());
        EXPECT_EQ(result.GetError(), "Couldn't deserialize operation from " + path);
    }

    static Operation Sample()
    {
        return Operation("0a5d", "org.example.app", Common::OperationType::Upgrade,
                         Common::OperationStatus::Failed, Common::ErrorCode::FileConflict);
    }

    /// An exception says that the file may be good.
    std::string ErrorOfReading() const
    {
        const Result<Operation> result = Emporium::OperationFile::Read(path);
        return result.HasError() ? result.GetError() : "none";
    }

    std::string SavedSample()
    {
        EXPECT_TRUE(static_cast<bool>(Sample().SaveToFile(path)));
        return Read(path);
    }

    TestSupport::TemporaryDirectory directory;
    std::string path = PathOf("operation");
};

/// While this object lives, no descriptor can be opened.
class DescriptorLimit
{
public:
    DescriptorLimit()
    {
        getrlimit(RLIMIT_NOFILE, &m_former);
        const rlimit none{0, m_former.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_former); }

private:
    rlimit m_former{};
};

void ExpectEqual(const Operation& left, const Operation& right)
{
    EXPECT_EQ(left.GetUUID(), right.GetUUID());
    EXPECT_EQ(left.GetPackageID(), right.GetPackageID());
    EXPECT_EQ(left.GetType(), right.GetType());
    EXPECT_EQ(left.GetStatus(), right.GetStatus());
    EXPECT_EQ(left.GetErrorCode(), right.GetErrorCode());
}

TEST_F(OperationFile, LoadingRestoresASavedOperation)
{
    const Operation odd("", std::string("zero\0byte", 9), static_cast<Common::OperationType>(-7),
                        static_cast<Common::OperationStatus>(2147483647),
                        static_cast<Common::ErrorCode>(12));
    for (const Operation& operation : {Sample(), Operation(), odd}) {
        ASSERT_TRUE(static_cast<bool>(operation.SaveToFile(path)));
        const Result<Operation> loaded = Operation::FromFile(path);
        ASSERT_TRUE(static_cast<bool>(loaded)) << loaded.GetError();
        ExpectEqual(loaded.Get(), operation);
    }
}

TEST_F(OperationFile, SavingReplacesAnExistingFile)
{
    Write(path, std::string(10000, 'x'));
    ASSERT_TRUE(static_cast<bool>(Sample().SaveToFile(path)));
    ExpectEqual(Operation::FromFile(path).Get(), Sample());
    EXPECT_LT(Read(path).size(), 200U);
}

/// Reads the file with nothing but the archive library's own strings and numbers.
TEST_F(OperationFile, ANewOnesModeFollowsTheUmask)
{
    const Operation operation;
    for (const mode_t mask : {0U, 002U, 077U}) {
        std::filesystem::remove(path);
        const mode_t former = umask(mask);
        EXPECT_TRUE(static_cast<bool>(operation.SaveToFile(path)));
        umask(former);
        EXPECT_EQ(std::filesystem::status(path).permissions(),
                  static_cast<std::filesystem::perms>(0666U & ~mask));
    }
}

TEST_F(OperationFile, ContainsAPreambleTwoStringsAndThreeNumbers)
{
    const std::string content = SavedSample();
    std::ifstream file(path, std::ios::binary);
    boost::archive::binary_iarchive archive(file, 0);
    char preamble[5] = {1, 1, 1, 1, 1};
    archive.load_binary(preamble, sizeof preamble);
    EXPECT_EQ(std::string(preamble, 5), std::string(5, '\0')) << "not tracked, version 0";
    std::string uuid;
    std::string packageID;
    std::int32_t numbers[3] = {};
    archive >> uuid >> packageID;
    archive.load_binary(numbers, sizeof numbers);
    EXPECT_EQ(uuid, "0a5d");
    EXPECT_EQ(packageID, "org.example.app");
    EXPECT_EQ(numbers[0], 1);
    EXPECT_EQ(numbers[1], 101);
    EXPECT_EQ(numbers[2], 28);
    EXPECT_EQ(file.peek(), std::ifstream::traits_type::eof()) << "nothing follows";
    EXPECT_EQ(content.substr(content.size() - 4), std::string("\x1c\0\0\0", 4));
}

TEST_F(OperationFile, AnEmptyFileCannotBeDeserialized)
{
    ExpectDamaged("");
}

TEST_F(OperationFile, ATruncatedFileCannotBeDeserialized)
{
    const std::string content = SavedSample();
    for (std::size_t length = 0; length < content.size(); ++length) {
        ExpectDamaged(content.substr(0, length));
    }
}

/// The same file, written by a machine of the other byte order.
std::string InOtherByteOrder(std::string content, std::size_t uuidLength,
                             std::size_t packageIDLength)
{
    std::size_t place = 0;
    const auto reverse = [&](std::size_t size) {
        std::reverse(content.begin() + static_cast<std::ptrdiff_t>(place),
                     content.begin() + static_cast<std::ptrdiff_t>(place + size));
        place += size;
    };
    reverse(8);                                     // length of the archive's signature
    place += std::strlen("serialization::archive"); //
    reverse(2);                                     // version of the archive library
    place += 4;                                     // sizes of four types
    reverse(4);                                     // the number 1
    place += 1;                                     // tracking flag
    reverse(4);                                     // class version
    for (const std::size_t length : {uuidLength, packageIDLength}) {
        reverse(8);
        place += length;
    }
    for (int number = 0; number < 3; ++number) {
        reverse(4);
    }
    EXPECT_EQ(place, content.size());
    return content;
}

TEST_F(OperationFile, AFileOfTheOtherByteOrderCannotBeDeserialized)
{
    const Operation operation("uuid", "package", Common::OperationType::Upgrade,
                              Common::OperationStatus::Failed, Common::ErrorCode::FileConflict);
    ASSERT_TRUE(static_cast<bool>(operation.SaveToFile(path)));
    const std::string swapped = InOtherByteOrder(Read(path), 4, 7);
    EXPECT_EQ(InOtherByteOrder(swapped, 4, 7), Read(path)) << "each byte is in its place";
    Write(path, swapped);
    EXPECT_TRUE(Operation::FromFile(path).HasError());
}

TEST_F(OperationFile, AnotherClassVersionIsRejected)
{
    std::string content = SavedSample();
    const std::size_t uuid = content.find(std::string("\x04\0\0\0\0\0\0\0"
                                                      "0a5d",
                                                      12));
    ASSERT_NE(uuid, std::string::npos);
    for (std::size_t offset = 1; offset <= 4; ++offset) {
        std::string changed = content;
        changed[uuid - offset] = 1;
        ExpectDamaged(changed);
    }
}

TEST_F(OperationFile, ATrackedObjectIsRejected)
{
    std::string content = SavedSample();
    const std::size_t uuid = content.find("0a5d") - 8;
    for (const char flag : {'\1', '\2', '\xff'}) {
        content[uuid - 5] = flag;
        ExpectDamaged(content);
    }
}

/// Memory use stays near the file's size, whatever lengths a damaged file claims.
TEST_F(OperationFile, AHugeLengthIsRefusedBeforeAnythingIsAllocated)
{
    const std::string content = SavedSample();
    const std::size_t uuid = content.find("0a5d") - 8;
    const std::size_t packageID = content.find("org.example.app") - 8;
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    for (const std::size_t place : {std::size_t{0}, uuid, packageID}) {
        for (const std::uint64_t length :
             {std::uint64_t{1} << 30, std::uint64_t{1} << 40, ~std::uint64_t{0}}) {
            std::string changed = content;
            std::memcpy(changed.data() + place, &length, sizeof length);
            ExpectDamaged(changed);
        }
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100 * 1024) << "KiB";
}

class OperationFileTooLarge : public OperationFile
{
protected:
    /// Returns the memory that a read takes, in KiB. Fails the test unless the file is refused.
    long MemoryToRefuse(std::uintmax_t size)
    {
        std::filesystem::resize_file(path, size); // a hole: no disk is needed
        rusage before{};
        getrusage(RUSAGE_SELF, &before);
        const Result<Operation> result = Operation::FromFile(path);
        EXPECT_TRUE(result.HasError());
        EXPECT_EQ(result.HasError() ? result.GetError() : "",
                  "Couldn't deserialize operation from " + path);
        rusage after{};
        getrusage(RUSAGE_SELF, &after);
        return after.ru_maxrss - before.ru_maxrss;
    }

    static constexpr std::uintmax_t mebibyte = 1 << 20;
    static constexpr long little = 20L * 1024;
};

TEST_F(OperationFileTooLarge, IsRefusedByItsHeaderWithoutBeingRead)
{
    Write(path, "");
    EXPECT_LT(MemoryToRefuse(127 * mebibyte), little);
}

TEST_F(OperationFileTooLarge, IsRefusedByTheTextOfItsHeaderWithoutBeingRead)
{
    std::string content = SavedSample();
    content[sizeof(std::size_t)] = 'X';
    Write(path, content);
    EXPECT_LT(MemoryToRefuse(127 * mebibyte), little);
}

TEST_F(OperationFileTooLarge, IsRefusedByItsSizeWhereTheHeaderIsGood)
{
    SavedSample();
    EXPECT_LT(MemoryToRefuse(3072 * mebibyte), little);
}

TEST_F(OperationFileTooLarge, IsNotAnOperationAsLargeAsTheBusCarries)
{
    const Operation large("0a5d", std::string(100 * mebibyte, 'x'), Common::OperationType::Install,
                          Common::OperationStatus::Failed, Common::ErrorCode::None);
    ASSERT_TRUE(static_cast<bool>(large.SaveToFile(path)));
    const Result<Operation> loaded = Operation::FromFile(path);
    ASSERT_TRUE(static_cast<bool>(loaded));
    ExpectEqual(loaded.Get(), large);
}

TEST_F(OperationFile, AFileWithAFlippedByteIsEitherReadOrRefused)
{
    const std::string content = SavedSample();
    for (std::size_t index = 0; index < content.size(); ++index) {
        for (const char mask : {'\x01', '\x80', '\xff'}) {
            std::string changed = content;
            changed[index] = static_cast<char>(changed[index] ^ mask);
            Write(path, changed);
            const Result<Operation> result = Operation::FromFile(path);
            if (result.HasError()) {
                EXPECT_EQ(result.GetError(), "Couldn't deserialize operation from " + path);
            }
        }
    }
}

TEST_F(OperationFile, AMissingFileCannotBeOpened)
{
    const Result<Operation> result = Operation::FromFile(path);
    ASSERT_TRUE(result.HasError());
    EXPECT_EQ(result.GetError(), "Couldn't open " + path + " to read operation");
}

TEST_F(OperationFile, SavingIntoAMissingDirectoryFails)
{
    const std::string missing = PathOf("missing/operation");
    const Result<void> result = Operation().SaveToFile(missing);
    ASSERT_TRUE(result.HasError());
    EXPECT_EQ(result.GetError(), "Couldn't open " + missing + " to save operation");
}

TEST_F(OperationFile, AFullDiskFailsTheSerialization)
{
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "this system has no /dev/full";
    }
    const Result<void> result = Sample().SaveToFile("/dev/full");
    ASSERT_TRUE(result.HasError());
    EXPECT_EQ(result.GetError(), "Couldn't serialize operation to /dev/full");
}

TEST_F(OperationFile, AFifoBlocksNeitherReadingNorWriting)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(Operation::FromFile(path).GetError(), "Couldn't deserialize operation from " + path);
    EXPECT_EQ(Sample().SaveToFile(path).GetError(), "Couldn't open " + path + " to save operation");
}

TEST_F(OperationFile, AMissingDescriptorIsNotReportedAsADamagedFile)
{
    const std::string expected = "Couldn't open " + path + " to read operation";
    if (TestSupport::hasAddressSanitizer) {
        GTEST_SKIP() << "the sanitizer opens descriptors itself, and reports errors without them";
    }
    SavedSample();
    const DescriptorLimit limit;
    EXPECT_EQ(Operation::FromFile(path).GetError(), expected);
    EXPECT_THROW(Emporium::OperationFile::Read(path), std::system_error);
}

TEST_F(OperationFile, ADirectoryAndADeviceCannotBeDeserialized)
{
    EXPECT_EQ(Operation::FromFile(directory.Path().string()).GetError(),
              "Couldn't deserialize operation from " + directory.Path().string());
    EXPECT_EQ(Operation::FromFile("/dev/zero").GetError(),
              "Couldn't deserialize operation from /dev/zero");
}

TEST_F(OperationFile, ASocketCannotBeOpened)
{
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
    EXPECT_EQ(Operation::FromFile(path).GetError(), "Couldn't open " + path + " to read operation");
}

TEST_F(OperationFile, AnInterruptedReadOrWriteIsRepeated)
{
    bool interrupted = false;
    insteadOfWrite = [&](int file, const char* content, std::size_t size) {
        interrupted = !interrupted;
        return interrupted ? FailWith(EINTR)
                           : __real_write(file, content, std::min(size, std::size_t{9}));
    };
    ASSERT_TRUE(static_cast<bool>(Sample().SaveToFile(path)));
    insteadOfWrite = nullptr;
    interrupted = false;
    insteadOfRead = [&](int file, char* content, std::size_t size) {
        interrupted = !interrupted;
        return interrupted ? FailWith(EINTR)
                           : __real_read(file, content, std::min(size, std::size_t{9}));
    };
    const Result<Operation> result = Operation::FromFile(path);
    ASSERT_TRUE(static_cast<bool>(result)) << result.GetError();
    ExpectEqual(result.Get(), Sample());
}

/// An earlier call may have left any number there.
TEST_F(OperationFile, TheErrorNumberCountsOnlyAfterAFailure)
{
    for (const int error : {EINTR, ENOMEM}) {
        int calls = 0;
        insteadOfWrite = [&](int file, const char* content, std::size_t size) {
            const ssize_t written =
                ++calls < 100 ? __real_write(file, content, size) : FailWith(EIO);
            errno = error;
            return written;
        };
        ASSERT_TRUE(static_cast<bool>(Sample().SaveToFile(path)));
        EXPECT_EQ(calls, 1);
        insteadOfRead = [&](int file, char* content, std::size_t size) {
            const ssize_t count = ++calls < 100 ? __real_read(file, content, size) : FailWith(EIO);
            errno = error;
            return count;
        };
        const Result<Operation> result = Operation::FromFile(path);
        ASSERT_TRUE(static_cast<bool>(result)) << result.GetError();
        ExpectEqual(result.Get(), Sample());
    }
}

TEST_F(OperationFile, AFailureToReadOrWriteIsAnError)
{
    insteadOfWrite = [](int, const char*, std::size_t) { return FailWith(EIO); };
    const Result<void> saved = Sample().SaveToFile(path);
    ASSERT_TRUE(saved.HasError());
    EXPECT_EQ(saved.GetError(), "Couldn't serialize operation to " + path);
    insteadOfWrite = nullptr;
    SavedSample();
    insteadOfRead = [](int, char*, std::size_t) { return FailWith(EIO); };
    EXPECT_EQ(ErrorOfReading(), "Couldn't deserialize operation from " + path);
}

TEST_F(OperationFile, ALackOfMemoryInTheSystemIsNotReportedAsADamagedFile)
{
    SavedSample();
    insteadOfRead = [](int, char*, std::size_t) { return FailWith(ENOMEM); };
    EXPECT_EQ(Operation::FromFile(path).GetError(), "Couldn't deserialize operation from " + path);
    EXPECT_THROW(Emporium::OperationFile::Read(path), std::bad_alloc);
    insteadOfRead = nullptr;
    failureOfOpen = ENOMEM;
    EXPECT_EQ(Operation::FromFile(path).GetError(), "Couldn't deserialize operation from " + path);
    EXPECT_THROW(Emporium::OperationFile::Read(path), std::bad_alloc);
    for (const int error : {EMFILE, ENFILE}) {
        failureOfOpen = error;
        EXPECT_THROW(Emporium::OperationFile::Read(path), std::system_error);
    }
}

TEST_F(OperationFile, AFileThatShrinksWhileItIsReadIsDamaged)
{
    const std::size_t withoutItsEnd = SavedSample().size() - sizeof(std::int32_t);
    for (const int error : {0, EINTR, ENOMEM}) {
        std::size_t left = withoutItsEnd;
        int calls = 0;
        insteadOfRead = [&](int file, char* content, std::size_t size) {
            const ssize_t count =
                ++calls < 100 ? __real_read(file, content, std::min(size, left)) : FailWith(EIO);
            left -= count > 0 ? static_cast<std::size_t>(count) : 0;
            errno = error;
            return count;
        };
        EXPECT_EQ(ErrorOfReading(), "Couldn't deserialize operation from " + path);
        EXPECT_LT(calls, 100);
    }
}

TEST_F(OperationFile, AFileThatLosesOnlyWhatFollowsTheOperationIsRead)
{
    const std::string content = SavedSample();
    Write(path, content + std::string(100, 'x'));
    std::size_t left = content.size();
    insteadOfRead = [&](int file, char* target, std::size_t size) {
        const ssize_t count = __real_read(file, target, std::min(size, left));
        left -= static_cast<std::size_t>(count);
        return count;
    };
    EXPECT_EQ(ErrorOfReading(), "none");
}

TEST_F(OperationFile, OfAFileThatGrowsWhileItIsReadOnlyTheFormerSizeIsRead)
{
    const Operation large(std::string(10000, 'x'), "", Common::OperationType::Remove,
                          Common::OperationStatus::Succeeded, Common::ErrorCode::None);
    ASSERT_TRUE(static_cast<bool>(large.SaveToFile(path)));
    std::size_t left = std::filesystem::file_size(path);
    insteadOfRead = [&](int file, char* content, std::size_t size) {
        EXPECT_LE(size, left);
        const ssize_t count = __real_read(file, content, std::min(size, left));
        left -= static_cast<std::size_t>(count);
        return count;
    };
    const Result<Operation> result = Operation::FromFile(path);
    ASSERT_TRUE(static_cast<bool>(result)) << result.GetError();
    ExpectEqual(result.Get(), large);
}

/// The first terminal that a process without one opens becomes its controlling terminal.
TEST_F(OperationFile, ATerminalUnderTheNameOfAFileDoesNotBecomeThatOfTheProcess)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
        GTEST_SKIP() << "this system has no pseudo-terminals";
    }
    const std::string name = ptsname(terminal);
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        const bool failed = Operation::FromFile(name).HasError();
        const bool hasTerminal = open("/dev/tty", O_RDWR | O_CLOEXEC) >= 0;
        _exit(failed && !hasTerminal ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    close(terminal);
    EXPECT_EQ(status, 0);
}

/// The numbers of closed standard descriptors are used only while the library is at work.
TEST_F(OperationFile, AClosedStandardInputIsClosedAfterwards)
{
    const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(STDIN_FILENO);
    const bool saved = static_cast<bool>(Sample().SaveToFile(path));
    const bool isClosed = fcntl(STDIN_FILENO, F_GETFD) < 0;
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_TRUE(saved);
    EXPECT_TRUE(isClosed);
}

TEST_F(OperationFile, APathWithAZeroByteCannotBeOpened)
{
    errno = EMFILE; // of an earlier call
    EXPECT_NO_THROW(Emporium::OperationFile::Read(path + std::string("\0.txt", 5)));
    const std::string zero = path + std::string("\0.txt", 5);
    EXPECT_EQ(Sample().SaveToFile(zero).GetError(), "Couldn't open " + zero + " to save operation");
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_TRUE(static_cast<bool>(Sample().SaveToFile(path)));
    EXPECT_EQ(Operation::FromFile(zero).GetError(), "Couldn't open " + zero + " to read operation");
}

} // namespace
