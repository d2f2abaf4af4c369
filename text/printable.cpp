// SPDX-License-Identifier: BSD-3-Clause
#include "text/printable.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <langinfo.h>
#include <unistd.h>
#include <utility>

namespace Text {
namespace {

struct Character
{
    std::string_view bytes;
    gunichar code = 0;
    bool valid = true; ///< False for one byte that is not UTF-8; `code` is then the byte.
};

/// The first character of a text that is not empty.
Character First(std::string_view text)
{
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte < 0x80) {
        return {text.substr(0, 1), byte};
    }
    const gunichar code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    if (code == static_cast<gunichar>(-1) || code == static_cast<gunichar>(-2)) {
        return {text.substr(0, 1), byte, false};
    }
    return {text.substr(0, static_cast<std::size_t>(g_unichar_to_utf8(code, nullptr))), code};
}

template <typename Function>
void ForEachCharacter(std::string_view text, Function function)
{
    while (!text.empty()) {
        const Character character = First(text);
        function(character);
        text.remove_prefix(character.bytes.size());
    }
}

/// Letters and marks that show nothing, although their Unicode category does not say so: fillers and
/// variation selectors among them.
bool IsBlankByDefinition(gunichar code)
{
    constexpr std::array<std::pair<gunichar, gunichar>, 8> ranges{{{0x034f, 0x034f},
                                                                   {0x115f, 0x1160},
                                                                   {0x17b4, 0x17b5},
                                                                   {0x180b, 0x180f},
                                                                   {0x3164, 0x3164},
                                                                   {0xfe00, 0xfe0f},
                                                                   {0xffa0, 0xffa0},
                                                                   {0xe0000, 0xe0fff}}};
    return std::any_of(ranges.begin(), ranges.end(), [code](const auto& range) {
        return range.first <= code && code <= range.second;
    });
}

bool IsPrintable(const Character& character, Letters letters)
{
    if (!character.valid || IsBlankByDefinition(character.code) ||
        (letters == Letters::Ascii && character.code >= 0x80)) {
        return false;
    }
    switch (g_unichar_type(character.code)) {
    case G_UNICODE_CONTROL:
    case G_UNICODE_FORMAT: // direction, zero width, tags
    case G_UNICODE_LINE_SEPARATOR:
    case G_UNICODE_PARAGRAPH_SEPARATOR:
    case G_UNICODE_SURROGATE:
    case G_UNICODE_UNASSIGNED:
        return false;
    default:
        return true;
    }
}

std::string Formatted(const char* format, gunichar code)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, code);
    return text.data();
}

std::string Escape(const Character& character)
{
    if (!character.valid || character.code < 0x80) {
        return Formatted("\\x%02x", character.code);
    }
    return Formatted(character.code <= 0xffff ? "\\u%04x" : "\\U%08x", character.code);
}

/// JSON writes a code point above 16 bits as two surrogates.
std::string JsonEscape(gunichar code)
{
    if (code <= 0xffff) {
        return Formatted("\\u%04x", code);
    }
    const gunichar rest = code - 0x10000;
    return Formatted("\\u%04x", 0xd800 + (rest >> 10U)) +
           Formatted("\\u%04x", 0xdc00 + (rest & 0x3ffU));
}

std::size_t Columns(const Character& character)
{
    if (g_unichar_iszerowidth(character.code) != FALSE) {
        return 0;
    }
    return g_unichar_iswide(character.code) != FALSE ? 2 : 1;
}

} // namespace

Letters LettersFor(int descriptor)
{
    const bool isUtf8 = std::string_view(nl_langinfo(CODESET)) == "UTF-8";
    return isUtf8 || isatty(descriptor) == 0 ? Letters::All : Letters::Ascii;
}

std::string Printable(std::string_view text, Letters letters)
{
    std::string printable;
    ForEachCharacter(text, [&](const Character& character) {
        if (IsPrintable(character, letters)) {
            printable += character.bytes;
        } else {
            printable += Escape(character);
        }
    });
    return printable;
}

std::size_t Columns(std::string_view text)
{
    std::size_t columns = 0;
    ForEachCharacter(text, [&](const Character& character) { columns += Columns(character); });
    return columns;
}

std::string Shorten(std::string_view text, std::size_t columns, Letters letters)
{
    if (Columns(text) <= columns) {
        return std::string(text);
    }
    std::string shortened;
    std::size_t used = 1; // the ellipsis
    while (!text.empty()) {
        const Character character = First(text);
        used += Columns(character);
        if (used > columns) {
            break;
        }
        shortened += character.bytes;
        text.remove_prefix(character.bytes.size());
    }
    return shortened + (letters == Letters::All ? "\u2026" : "~");
}

std::string PrintableJson(std::string_view document, Letters letters)
{
    std::string printable;
    ForEachCharacter(document, [&](const Character& character) {
        if (IsPrintable(character, letters)) {
            printable += character.bytes;
        } else {
            printable += JsonEscape(character.code);
        }
    });
    return printable;
}

} // namespace Text
