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
// A read asks for the size first, then for that many bytes. Between the two, the attribute may
// change: a value or list that has grown is a failure, without a second attempt; a value that has
// shrunk is returned at its old length, padded with zero bytes; a list that has shrunk ends in
// empty names, whose values cannot be read.

/// Throws "Couldn't retrieve size of NAME extended attribute: PATH" or "Couldn't retrieve NAME
/// extended attribute: PATH".
std::string GetExtendedAttribute(const std::filesystem::path& path, const std::string& name);

/// Throws "Couldn't retrieve size of extended attributes: PATH", "Couldn't retrieve extended
/// attributes: PATH", or what GetExtendedAttribute() throws for the first value that fails.
ExtendedAttributes GetExtendedAttributes(const std::filesystem::path& path);

/// Creates or replaces an attribute. **An empty value is never written**: the call returns, and an
/// existing attribute stays as it is. Throws "Couldn't attach NAME extended attribute to PATH".
void SetExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value);

} // namespace Common
