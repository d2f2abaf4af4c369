// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/skip_value.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Emporium::Decoder {
namespace {

void SkipValue(sdbus::Message& message, char type, const char* content);

template <typename Value>
void SkipBasic(sdbus::Message& message)
{
    Value value{};
    message >> value;
}

/// Skips what remains of the container that was entered.
void SkipContent(sdbus::Message& message)
{
    for (auto item = message.peekType(); item.first != '\0'; item = message.peekType()) {
        SkipValue(message, item.first, item.second);
    }
}

/// Skips an array of fixed-size numbers in one step, whatever its length.
void SkipNumbers(sdbus::Message& message, char type)
{
    const void* items = nullptr;
    std::size_t size = 0;
    message.readArray(type, &items, &size);
}

// The content of a container is copied: the next peekType() overwrites its text.

void SkipArray(sdbus::Message& message, const std::string& content)
{
    constexpr std::string_view numbers = "ynqiuxtd";
    if (numbers.find(content[0]) != std::string_view::npos) {
        SkipNumbers(message, content[0]);
        return;
    }
    message.enterContainer(content.c_str());
    SkipContent(message);
    message.exitContainer();
}

void SkipStruct(sdbus::Message& message, const std::string& content)
{
    message.enterStruct(content.c_str());
    SkipContent(message);
    message.exitStruct();
}

void SkipDictEntry(sdbus::Message& message, const std::string& content)
{
    message.enterDictEntry(content.c_str());
    SkipContent(message);
    message.exitDictEntry();
}

void SkipValue(sdbus::Message& message, char type, const char* content)
{
    switch (type) {
    case 's':
        return SkipBasic<char*>(message);
    case 'b':
        return SkipBasic<bool>(message);
    case 'y':
        return SkipBasic<std::uint8_t>(message);
    case 'n':
        return SkipBasic<std::int16_t>(message);
    case 'q':
        return SkipBasic<std::uint16_t>(message);
    case 'i':
        return SkipBasic<std::int32_t>(message);
    case 'u':
        return SkipBasic<std::uint32_t>(message);
    case 'x':
        return SkipBasic<std::int64_t>(message);
    case 't':
        return SkipBasic<std::uint64_t>(message);
    case 'd':
        return SkipBasic<double>(message);
    case 'o':
        return SkipBasic<sdbus::ObjectPath>(message);
    case 'g':
        return SkipBasic<sdbus::Signature>(message);
    case 'h':
        return SkipBasic<sdbus::UnixFd>(message);
    case 'v':
        return SkipVariant(message);
    case 'a':
        return SkipArray(message, content);
    case 'r':
        return SkipStruct(message, content);
    case 'e':
        return SkipDictEntry(message, content);
    default:
        throw sdbus::createError(EBADMSG, "Failed to read a value of unknown type");
    }
}

} // namespace

void SkipVariant(sdbus::Message& message)
{
    const char* const signature = message.peekType().second;
    message.enterVariant(signature);
    const bool isBasic = signature[0] != '\0' && signature[1] == '\0';
    if (isBasic) {
        SkipValue(message, signature[0], nullptr); // saves a peekType() for most variants
    } else {
        SkipContent(message);
    }
    message.exitVariant();
}

} // namespace Emporium::Decoder
