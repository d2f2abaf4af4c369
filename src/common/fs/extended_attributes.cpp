// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/extended_attributes.h"

#include "common/fs/failure.h"

#include <cstddef>
#include <sys/types.h>
#include <sys/xattr.h>

namespace Common {
namespace {

/// Returns the size that a system call returned, or throws `message` if it is negative.
std::size_t SizeOr(ssize_t answer, const std::string& message)
{
    if (answer < 0) {
        throw FilesystemError(message);
    }
    return static_cast<std::size_t>(answer);
}

/// Null for an empty text.
char* BufferOf(std::string& text)
{
    return text.empty() ? nullptr : text.data();
}

/// Returns all names in one text, each followed by a zero byte.
std::string ListNames(const std::filesystem::path& path)
{
    std::string names(SizeOr(listxattr(path.c_str(), nullptr, 0),
                             "Couldn't retrieve size of extended attributes: " + path.native()),
                      '\0');
    SizeOr(listxattr(path.c_str(), BufferOf(names), names.size()),
           "Couldn't retrieve extended attributes: " + path.native());
    return names;
}

} // namespace

std::string GetExtendedAttribute(const std::filesystem::path& path, const std::string& name)
{
    const std::string described = name + " extended attribute: " + path.native();
    std::string value(SizeOr(getxattr(path.c_str(), name.c_str(), nullptr, 0),
                             "Couldn't retrieve size of " + described),
                      '\0');
    SizeOr(getxattr(path.c_str(), name.c_str(), BufferOf(value), value.size()),
           "Couldn't retrieve " + described);
    return value;
}

ExtendedAttributes GetExtendedAttributes(const std::filesystem::path& path)
{
    const std::string names = ListNames(path);
    ExtendedAttributes attributes;
    for (std::size_t offset = 0; offset < names.size();) {
        std::string name = names.c_str() + offset;
        offset += name.size() + 1;
        std::string value = GetExtendedAttribute(path, name);
        attributes.emplace_back(std::move(name), std::move(value));
    }
    return attributes;
}

void SetExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value)
{
    if (value.empty()) {
        return;
    }
    constexpr int createOrReplace = 0;
    SizeOr(lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), createOrReplace),
           "Couldn't attach " + name + " extended attribute to " + path.native());
}

} // namespace Common
