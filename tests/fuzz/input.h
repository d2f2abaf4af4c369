// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

/// The entry point of every fuzz target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

/// Reports a finding.
inline void Require(bool condition, const char* expectation)
{
    if (!condition) {
        std::fprintf(stderr, "expectation failed: %s\n", expectation);
        std::abort();
    }
}

/// Takes values from the bytes of an input, and zeros after their end.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size)
    {
    }

    bool IsEmpty() const { return m_rest.empty(); }

    template <typename Number>
    Number Take()
    {
        Number number{};
        const std::string_view bytes = Bytes(sizeof number);
        std::memcpy(&number, bytes.data(), bytes.size());
        return number;
    }

    std::uint8_t Byte() { return Take<std::uint8_t>(); }

    /// Less than the limit.
    std::size_t Below(std::size_t limit) { return Byte() % limit; }

    std::string_view Bytes(std::size_t size)
    {
        const std::string_view bytes = m_rest.substr(0, size);
        m_rest.remove_prefix(bytes.size());
        return bytes;
    }

    /// A byte with the length, then the text.
    std::string Text() { return std::string(Bytes(Byte())); }

    std::string_view Rest() { return Bytes(m_rest.size()); }

private:
    std::string_view m_rest;
};

/// A file in memory, for code that takes a path.
class InputFile
{
public:
    InputFile() : m_file(::memfd_create("input", MFD_CLOEXEC))
    {
        Require(static_cast<bool>(m_file), "a file in memory can be created");
    }

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_file.Get()); }

    void Write(std::string_view content) const
    {
        const auto size = static_cast<::ssize_t>(content.size());
        Require(::ftruncate(m_file.Get(), 0) == 0 &&
                    ::pwrite(m_file.Get(), content.data(), content.size(), 0) == size,
                "the file in memory can be written");
    }

    std::string Read() const
    {
        std::string content(static_cast<std::size_t>(::lseek(m_file.Get(), 0, SEEK_END)), '\0');
        const auto size = static_cast<::ssize_t>(content.size());
        Require(::pread(m_file.Get(), content.data(), content.size(), 0) == size,
                "the file in memory can be read");
        return content;
    }

private:
    Common::FileDescriptor m_file;
};

} // namespace Fuzz
