// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string_view>

namespace Common {

/// True if the text names an entry of a directory, and so cannot lead out of it.
constexpr bool IsPlainFileName(std::string_view name) noexcept
{
    constexpr std::string_view separators("/\0", 2); // the zero byte would cut off the rest
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(separators) == std::string_view::npos;
}

} // namespace Common
