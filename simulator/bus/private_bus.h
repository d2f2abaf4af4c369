// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"

#include <csignal>
#include <filesystem>
#include <map>
#include <string>

namespace Simulator {

/// A separate dbus-daemon, with its socket in a new temporary directory. Destroying the object stops
/// the process and removes the directory. The bus starts no services.
///
/// The tests of the library use it too.
class PrivateBus
{
public:
    /// Limits of the bus by their names in dbus-daemon's configuration. They replace those of a
    /// session bus.
    using Limits = std::map<std::string, unsigned>;

    /// @throws std::runtime_error with dbus-daemon's reason when it cannot be started
    explicit PrivateBus(const Limits& limits = {});
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return m_address; }

    /// Stops the process now. Connections to the bus are lost.
    void Stop() { End(SIGTERM); }
    void Kill() { End(SIGKILL); }

    /// Starts another bus at the same address, after Stop() or Kill().
    void Start();

    /// Suspends the process. It is suspended when the function returns.
    void Suspend();
    void Resume() { Send(SIGCONT); }

private:
    void End(int signal);
    void Send(int signal);
    std::string ReadAddress();

    std::filesystem::path m_directory;
    std::string m_address;
    ObjectPtr<GSubprocess> m_process;
};

} // namespace Simulator
