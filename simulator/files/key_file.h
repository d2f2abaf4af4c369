// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Simulator {

/// A file in the key-file format of GLib. GLib's own reader does not report line numbers, which the
/// error messages need.
class KeyFile
{
public:
    struct Entry
    {
        std::string key;
        std::string value;
        std::size_t line;
    };

    struct Group
    {
        std::string name;
        std::size_t line;
        std::vector<Entry> entries;

        const Entry* Find(std::string_view key) const;
    };

    using Reader = std::string (*)(const std::string& path, std::size_t limit);

    /// @throws InputError naming the line; std::system_error when the file cannot be read.
    static KeyFile Read(const std::string& path, std::size_t limit, Reader reader);

    const std::string& Path() const { return m_path; }
    const std::vector<Group>& Groups() const { return m_groups; }

    /// The value of a required key.
    /// @throws InputError if the group lacks it
    const std::string& Require(const Group& group, std::string_view key) const;
    /// Refuses keys that are neither listed nor begin with the prefix: a misspelt key is an error,
    /// not ignored.
    void AllowOnly(const Group& group, const std::vector<std::string_view>& keys,
                   std::string_view prefix = {}) const;

private:
    void ParseLine(std::string_view text, std::size_t line);
    void ParseGroup(std::string_view text, std::size_t line);
    void ParseEntry(std::string_view text, std::size_t line);

    std::string m_path;
    std::vector<Group> m_groups;
};

/// Returns one line "key=value" with the value escaped.
std::string FormatEntry(std::string_view key, std::string_view value);

} // namespace Simulator
