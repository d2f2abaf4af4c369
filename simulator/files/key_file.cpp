// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/key_file.h"

#include "simulator/files/input_error.h"
#include "simulator/files/text_file.h"

#include <algorithm>
#include <optional>

namespace Simulator {

namespace {

constexpr std::string_view blanks = " \t\r\v\f";

std::string_view Trim(std::string_view text)
{
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

char Unescaped(char letter)
{
    switch (letter) {
    case 's':
        return ' ';
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case 'r':
        return '\r';
    case '\\':
        return '\\';
    default:
        return '\0';
    }
}

std::optional<std::string> Unescape(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        const char letter = ++i < text.size() ? Unescaped(text[i]) : '\0';
        if (letter == '\0') {
            return std::nullopt;
        }
        result += letter;
    }
    return result;
}

} // namespace

const KeyFile::Entry* KeyFile::Group::Find(std::string_view key) const
{
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [key](const Entry& entry) { return entry.key == key; });
    return found != entries.end() ? &*found : nullptr;
}

KeyFile KeyFile::Read(const std::string& path, std::size_t limit, Reader reader)
{
    KeyFile file;
    file.m_path = path;
    const std::string content = reader(path, limit);
    std::string_view rest = content;
    for (std::size_t line = 1; !rest.empty(); ++line) {
        const auto end = rest.find('\n');
        file.ParseLine(Trim(rest.substr(0, end)), line);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return file;
}

void KeyFile::ParseLine(std::string_view text, std::size_t line)
{
    if (text.empty() || text.front() == '#') {
        return;
    }
    if (text.front() == '[') {
        ParseGroup(text, line);
    } else {
        ParseEntry(text, line);
    }
}

void KeyFile::ParseGroup(std::string_view text, std::size_t line)
{
    const std::string_view name = text.substr(1, text.size() - 2);
    if (text.size() < 3 || text.back() != ']' || name.find_first_of("[]") != name.npos) {
        throw InputError(m_path, line, "not a group: " + std::string(text));
    }
    m_groups.push_back({std::string(name), line, {}});
}

void KeyFile::ParseEntry(std::string_view text, std::size_t line)
{
    const auto equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        throw InputError(m_path, line, "neither a group nor \"key=value\": " + std::string(text));
    }
    if (m_groups.empty()) {
        throw InputError(m_path, line, "a key before the first group");
    }
    const std::string key(Trim(text.substr(0, equals)));
    if (m_groups.back().Find(key) != nullptr) {
        throw InputError(m_path, line, "the key " + key + " occurs twice in its group");
    }
    auto value = Unescape(Trim(text.substr(equals + 1)));
    if (!value) {
        throw InputError(m_path, line, "a backslash that is not one of \\s \\n \\t \\r \\\\");
    }
    m_groups.back().entries.push_back({key, std::move(*value), line});
}

const std::string& KeyFile::Require(const Group& group, std::string_view key) const
{
    if (const Entry* entry = group.Find(key)) {
        return entry->value;
    }
    throw InputError(m_path, group.line,
                     "the group [" + group.name + "] lacks the key " + std::string(key));
}

void KeyFile::AllowOnly(const Group& group, const std::vector<std::string_view>& keys,
                        std::string_view prefix) const
{
    for (const Entry& entry : group.entries) {
        const bool prefixed = !prefix.empty() && entry.key.starts_with(prefix);
        if (!prefixed && std::find(keys.begin(), keys.end(), entry.key) == keys.end()) {
            throw InputError(m_path, entry.line, "unknown key " + entry.key);
        }
    }
}

std::string FormatEntry(std::string_view key, std::string_view value)
{
    std::string line = std::string(key) + "=";
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char letter = value[i];
        const bool outer = i == 0 || i + 1 == value.size();
        if (letter == '\\') {
            line += "\\\\";
        } else if (letter == '\n') {
            line += "\\n";
        } else if (letter == '\r') {
            line += "\\r";
        } else if (letter == '\t') {
            line += "\\t";
        } else if (letter == ' ' && outer) {
            line += "\\s";
        } else {
            line += letter;
        }
    }
    return line + "\n";
}

} // namespace Simulator
