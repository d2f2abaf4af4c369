// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/errors/error_table.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Simulator {

/// The error reply of a method call.
class BusError : public std::runtime_error
{
public:
    BusError(std::string name, const std::string& message)
        : std::runtime_error(message), m_name(std::move(name))
    {
    }
    explicit BusError(Common::ErrorCode code) : BusError(Common::FindError(static_cast<int>(code)))
    {
    }
    explicit BusError(const Common::ErrorTableRow& row)
        : BusError(std::string(row.dbusName), std::string(row.message))
    {
    }

    static BusError InvalidArguments(const std::string& message)
    {
        return {"org.freedesktop.DBus.Error.InvalidArgs", message};
    }

    const std::string& Name() const { return m_name; }

private:
    std::string m_name;
};

} // namespace Simulator
