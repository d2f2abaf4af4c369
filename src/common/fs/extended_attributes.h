// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Common {

/// Names, with their namespace prefix, and values, in the system's order. A value is any bytes.
using ExtendedAttributes = std::vector<std::pair<std::string, std::string>>;

// All three throw for a failure, without the system's reason, and log nothing. Reading follows a
// link; **writing does not**: it sets the attribute of the link itself.
//
// A reading asks for the size, and then for that much. What changes in between is not noticed but in
// two ways: a value or list that has grown is a failure, and there is no second attempt; a value
// that has shrunk comes back at its old length, filled up with zero bytes. A list that has shrunk
// ends in names that are empty, whose values cannot be read.

/// Throws "Couldn't retrieve size of NAME extended attribute: PATH" or "Couldn't retrieve NAME
/// extended attribute: PATH".
std::string GetExtendedAttribute(const std::filesystem::path& path, const std::string& name);

/// Throws "Couldn't retrieve size of extended attributes: PATH", "Couldn't retrieve extended
/// attributes: PATH", or what GetExtendedAttribute() throws for the first value that fails.
ExtendedAttributes GetExtendedAttributes(const std::filesystem::path& path);

/// Sets an attribute, new or not. **An empty value is never written**: the call returns, and an
/// attribute that is there stays as it is. Throws "Couldn't attach NAME extended attribute to PATH".
void SetExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value);

} // namespace Common
