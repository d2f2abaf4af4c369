// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/error.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Common {

/// One error: its number, its name on the bus and its English message.
struct ErrorTableRow
{
    ErrorCode code;
    std::string_view dbusName;
    std::string_view message;

    /// The last component of the bus name, which is the enumerator's own name.
    constexpr std::string_view ShortName() const
    {
        return dbusName.substr(dbusName.rfind('.') + 1);
    }
};

inline constexpr std::size_t errorTableSize = 31;

/// All names and messages, ordered by number. Both directions of the conversion, the category's
/// messages and the simulator's replies use this table. Constant-initialised: safe to read at any
/// time, also during static destruction.
extern const std::array<ErrorTableRow, errorTableSize> errorTable;

/// The row of a number, or the row of ErrorCode::Internal where the number is not assigned.
const ErrorTableRow& FindError(std::int32_t code);

/// The row of a whole bus error name, or the row of ErrorCode::Internal where there is none.
const ErrorTableRow& FindError(std::string_view dbusName);

} // namespace Common
