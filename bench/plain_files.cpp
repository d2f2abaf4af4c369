// SPDX-License-Identifier: BSD-3-Clause

// Does with plain system calls what the cache of completed operations does with its files: reads and
// removes the files of the last run, then writes COUNT files, each once.
//
//   plain-files DIRECTORY COUNT SIZE

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t largestFile = 4096;
std::array<char, largestFile> buffer{};

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::vector<std::string> FilesIn(const std::string& directory)
{
    DIR* const entries = opendir(directory.c_str());
    if (entries == nullptr) {
        return {};
    }
    std::vector<std::string> files;
    while (const dirent* const entry = readdir(entries)) {
        if (entry->d_type == DT_REG) {
            files.push_back(directory + "/" + entry->d_name);
        }
    }
    closedir(entries);
    return files;
}

void ReadAndRemove(const std::string& directory)
{
    const std::vector<std::string> files = FilesIn(directory);
    for (const std::string& file : files) {
        const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0 || read(descriptor, buffer.data(), buffer.size()) < 0) {
            Fail("cannot read " + file);
        }
        close(descriptor);
    }
    for (const std::string& file : files) {
        unlink(file.c_str());
    }
    rmdir(directory.c_str());
}

void Write(const std::string& file, std::size_t size)
{
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0 || write(descriptor, buffer.data(), size) != static_cast<ssize_t>(size)) {
        Fail("cannot write " + file);
    }
    close(descriptor);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc != 4) {
            throw std::invalid_argument("usage: plain-files DIRECTORY COUNT SIZE");
        }
        const std::string directory = argv[1];
        const std::size_t count = std::strtoul(argv[2], nullptr, 10);
        const std::size_t size = std::strtoul(argv[3], nullptr, 10);
        if (size > buffer.size()) {
            throw std::invalid_argument("the files are at most 4096 bytes long");
        }
        ReadAndRemove(directory);
        if (mkdir(directory.c_str(), 0700) != 0) {
            Fail("cannot create " + directory);
        }
        for (std::size_t number = 0; number < count; ++number) {
            Write(directory + "/7d444840-9dc0-11d1-b245-5ffdce" + std::to_string(200'000 + number),
                  size);
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
