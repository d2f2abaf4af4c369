// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/text_file.h"

#include "common/fs/file_descriptor.h"
#include "simulator/files/input_error.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Simulator {

namespace {

void CheckOpened(const std::string& path, const Common::FileDescriptor& file, struct stat& status)
{
    if (!file || fstat(file.Get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

std::string ReadAll(const std::string& path, int descriptor, std::size_t limit)
{
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count == 0) {
            return content;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        content.append(buffer, static_cast<std::size_t>(count));
        if (content.size() > limit) {
            throw InputError(path, 0, "larger than " + std::to_string(limit) + " bytes");
        }
    }
}

} // namespace

void RequireText(const std::string& path, const std::string& content)
{
    const char* end = nullptr;
    if (g_utf8_validate(content.data(), static_cast<gssize>(content.size()), &end)) {
        return;
    }
    const auto line = 1 + std::count(content.data(), end, '\n');
    throw InputError(path, static_cast<std::size_t>(line), "not UTF-8 text");
}

std::string ReadTextFile(const std::string& path, std::size_t limit)
{
    const Common::FileDescriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    CheckOpened(path, file, status);
    if (!S_ISREG(status.st_mode)) {
        throw InputError(path, 0, "not a regular file");
    }
    std::string content = ReadAll(path, file.Get(), limit);
    RequireText(path, content);
    return content;
}

std::string ReadStream(const std::string& path, std::size_t limit)
{
    std::string content = ReadStreamUnchecked(path, limit);
    RequireText(path, content);
    return content;
}

std::string ReadStreamUnchecked(const std::string& path, std::size_t limit)
{
    const Common::FileDescriptor file(path == standardInput
                                          ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                          : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status = {};
    CheckOpened(path, file, status);
    if (S_ISDIR(status.st_mode)) {
        throw InputError(path, 0, "a directory");
    }
    return ReadAll(path, file.Get(), limit);
}

} // namespace Simulator
