// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"

#include <filesystem>
#include <string>

namespace Simulator {

/// A separate dbus-daemon, with its socket in a new temporary directory. Destroying the object stops
/// the process and removes the directory. The bus starts no services.
///
/// The tests of the library use it too.
class PrivateBus
{
public:
    /// @throws std::runtime_error with dbus-daemon's reason when it cannot be started
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return m_address; }

    /// Stops the process now. Connections to the bus are lost.
    void Stop();

private:
    void Start();
    std::string ReadAddress();

    std::filesystem::path m_directory;
    std::string m_address;
    ObjectPtr<GSubprocess> m_process;
};

} // namespace Simulator
