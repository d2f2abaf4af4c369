// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"

#include <string>

namespace Simulator {

/// A dbus-daemon of our own with its socket in a new temporary directory. Both go with the object.
/// No service is ever started by it.
class PrivateBus
{
public:
    /// @throws std::runtime_error when it cannot be started
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return m_address; }

private:
    void Start();

    std::string m_directory;
    std::string m_address;
    ObjectPtr<GSubprocess> m_process;
};

} // namespace Simulator
