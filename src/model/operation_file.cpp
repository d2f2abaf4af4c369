// SPDX-License-Identifier: BSD-3-Clause
#include "model/operation_file.h"

#include "common/fs/file_descriptor.h"
#include "common/fs/standard_descriptors.h"

#include <boost/archive/archive_exception.hpp>
#include <boost/archive/basic_archive.hpp>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/level.hpp>
#include <boost/serialization/split_member.hpp>
#include <boost/serialization/tracking.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <new>
#include <optional>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Emporium {

using Common::FileDescriptor;
using Common::StandardDescriptorsTaken;

namespace {

/// Any kind of damage: the caller reports one text for all of them.
[[noreturn]] void ThrowDamaged()
{
    throw boost::archive::archive_exception(boost::archive::archive_exception::input_stream_error);
}

/// Lets an archive read from memory.
class MemoryBuffer : public std::streambuf
{
public:
    explicit MemoryBuffer(std::string& content)
    {
        setg(content.data(), content.data(), content.data() + content.size());
    }

    std::string_view Rest() const { return {gptr(), static_cast<std::size_t>(egptr() - gptr())}; }
};

/// A string in the form of the archive's own. Boost allocates the stored length unchecked; this
/// checks it against the remaining input.
class BoundedString
{
public:
    BoundedString() = default;
    explicit BoundedString(const std::string& content) : text(content) {}

    template <typename Archive>
    void save(Archive& archive, unsigned int /*version*/) const
    {
        archive << text;
    }

    template <typename Archive>
    void load(Archive& archive, unsigned int /*version*/)
    {
        std::size_t length = 0;
        archive >> length;
        if (length > source->Rest().size()) {
            ThrowDamaged();
        }
        text.resize(length);
        archive.load_binary(text.data(), length);
    }

    BOOST_SERIALIZATION_SPLIT_MEMBER()

    std::string text;
    const MemoryBuffer* source = nullptr;
};

class SerializableOperation
{
public:
    template <typename Archive>
    void serialize(Archive& archive, unsigned int /*version*/)
    {
        archive & uuid;
        archive & packageID;
        archive & type;
        archive & status;
        archive & errorCode;
    }

    BoundedString uuid;
    BoundedString packageID;
    std::int32_t type = 0;
    std::int32_t status = 0;
    std::int32_t errorCode = 0;
};

} // namespace
} // namespace Emporium

// As for the archive's own strings, no class information is stored.
BOOST_CLASS_IMPLEMENTATION(Emporium::BoundedString, boost::serialization::object_serializable)
BOOST_CLASS_TRACKING(Emporium::BoundedString, boost::serialization::track_never)
BOOST_CLASS_TRACKING(Emporium::SerializableOperation, boost::serialization::track_never)

namespace Emporium {
namespace {

constexpr unsigned int archiveFlags = 0;

/// Opens without blocking: a FIFO or a device must not delay the start or the exit of an
/// application. Refuses a path with a zero byte, which the system would cut off there.
FileDescriptor Open(const std::string& path, int flags)
{
    if (path.find('\0') != std::string::npos) {
        errno = EINVAL;
        return FileDescriptor(-1);
    }
    constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode));
}

/// Reads until the content has this size or the file ends.
void ReadUpTo(std::size_t size, const FileDescriptor& file, std::string& content)
{
    std::size_t length = content.size();
    content.resize(size);
    while (length < size) {
        const ssize_t count = ::read(file.Get(), content.data() + length, size - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno == ENOMEM) {
            throw std::bad_alloc();
        }
        if (count < 0) {
            ThrowDamaged();
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    content.resize(length);
}

bool WriteAll(const FileDescriptor& file, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = ::write(file.Get(), content.data(), content.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string Serialize(const Operation& operation)
{
    std::stringbuf buffer(std::ios_base::out);
    {
        boost::archive::binary_oarchive archive(buffer, archiveFlags);
        SerializableOperation record;
        record.uuid = BoundedString(operation.GetUUID());
        record.packageID = BoundedString(operation.GetPackageID());
        record.type = static_cast<std::int32_t>(operation.GetType());
        record.status = static_cast<std::int32_t>(operation.GetStatus());
        record.errorCode = static_cast<std::int32_t>(operation.GetErrorCode());
        archive << std::as_const(record);
    }
    return std::move(buffer).str();
}

/// The archive starts with its signature, a string whose length needs the same check.
void CheckSignature(std::string_view content)
{
    const std::string_view signature = boost::archive::BOOST_ARCHIVE_SIGNATURE();
    std::size_t length = 0;
    if (content.size() < sizeof length + signature.size()) {
        ThrowDamaged();
    }
    std::memcpy(&length, content.data(), sizeof length);
    if (length != signature.size() ||
        content.substr(sizeof length, signature.size()) != signature) {
        ThrowDamaged();
    }
}

/// Returns the content of a regular file that may hold an operation. Refuses every other file type,
/// whose content may be endless, and a sparse file of any size before reading it.
std::string ReadAll(const FileDescriptor& file)
{
    // An operation arrives in one message, and the bus limits messages to 128 MiB.
    constexpr std::size_t largest = 128 * 1024 * 1024 + 4096;
    constexpr std::size_t firstPage = 4096;
    struct stat status{};
    if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        ThrowDamaged();
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > largest) {
        ThrowDamaged();
    }
    std::string content;
    ReadUpTo(std::min(size, firstPage), file, content);
    CheckSignature(content);
    ReadUpTo(size, file, content);
    return content;
}

/// Requires an untracked record of class version 0. The archive accepts other versions, and asserts
/// where the tracking flag is neither 0 nor 1.
void CheckClassInformation(std::string_view content)
{
    constexpr std::string_view untrackedVersion0("\0\0\0\0\0", 5);
    if (content.substr(0, untrackedVersion0.size()) != untrackedVersion0) {
        throw boost::archive::archive_exception(
            boost::archive::archive_exception::unsupported_class_version, "SerializableOperation");
    }
}

Operation Deserialize(std::string content)
{
    MemoryBuffer buffer(content);
    boost::archive::binary_iarchive archive(buffer, archiveFlags);
    CheckClassInformation(buffer.Rest());
    SerializableOperation record;
    record.uuid.source = &buffer;
    record.packageID.source = &buffer;
    archive >> record;
    return Operation(std::move(record.uuid.text), std::move(record.packageID.text),
                     static_cast<Common::OperationType>(record.type),
                     static_cast<Common::OperationStatus>(record.status),
                     static_cast<Common::ErrorCode>(record.errorCode));
}

/// Throws if a file could not be opened for lack of descriptors or memory.
void ThrowIfExhausted(int error)
{
    if (error == EMFILE || error == ENFILE) {
        throw std::system_error(error, std::generic_category());
    }
    if (error == ENOMEM) {
        throw std::bad_alloc();
    }
}

ErrorResult CannotOpenToRead(const std::string& path)
{
    return ErrorResult("Couldn't open " + path + " to read operation");
}

ErrorResult CannotDeserialize(const std::string& path)
{
    return ErrorResult("Couldn't deserialize operation from " + path);
}

// The callers report the path alone, without the cause.

bool TrySerialize(const Operation& operation, const FileDescriptor& file)
{
    try {
        return WriteAll(file, Serialize(operation));
    } catch (const std::exception&) {
        return false;
    }
}

Result<void> Save(const Operation& operation, const std::string& path, int linkFlag)
{
    const FileDescriptor file = Open(path, O_WRONLY | O_CREAT | O_TRUNC | linkFlag);
    if (!file) {
        return ErrorResult("Couldn't open " + path + " to save operation");
    }
    if (!TrySerialize(operation, file)) {
        return ErrorResult("Couldn't serialize operation to " + path);
    }
    return SuccessResult<void>();
}

std::optional<Operation> TryDeserialize(const FileDescriptor& file)
{
    try {
        return Deserialize(ReadAll(file));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

Result<void> Operation::SaveToFile(const std::string& path) const
{
    constexpr int followLinks = 0;
    const StandardDescriptorsTaken others;
    return Save(*this, path, followLinks);
}

Result<void> OperationFile::Write(const Operation& operation, const std::string& path)
{
    return Save(operation, path, O_NOFOLLOW);
}

Result<Operation> Operation::FromFile(const std::string& path)
{
    try {
        const StandardDescriptorsTaken others;
        return OperationFile::Read(path);
    } catch (const std::system_error&) {
        return CannotOpenToRead(path);
    } catch (const std::bad_alloc&) {
        return CannotDeserialize(path);
    }
}

Result<Operation> OperationFile::Read(const std::string& path)
{
    const FileDescriptor file = Open(path, O_RDONLY);
    if (!file) {
        ThrowIfExhausted(errno);
        return CannotOpenToRead(path);
    }
    if (const std::optional<Operation> operation = TryDeserialize(file)) {
        return SuccessResult<Operation>(*operation);
    }
    return CannotDeserialize(path);
}

} // namespace Emporium
