// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/private_directory.h"
#include "simulator/glib_ptr.h"

#include <csignal>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

namespace Simulator {

class Interrupted : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A separate dbus-daemon, with its socket in a new temporary directory. Destroying the object stops
/// the process and removes the directory. The bus starts no services.
///
/// The process has its own process group, so that Ctrl-C does not reach it, and ends with this one, even
/// if this one is killed.
///
/// The tests of the library use it too.
class PrivateBus
{
public:
    /// Limits of the bus by their names in dbus-daemon's configuration. They replace those of a
    /// session bus.
    using Limits = std::map<std::string, unsigned>;

    /// @param interrupt a descriptor that ends the waiting for the bus when it becomes readable
    /// @throws std::runtime_error with dbus-daemon's reason when it cannot be started
    /// @throws Interrupted
    explicit PrivateBus(const Limits& limits = {}, int interrupt = -1);
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return m_address; }
    /// The directory that is removed with the bus.
    const std::filesystem::path& Directory() const { return m_directory.Path(); }

    /// Stops the process now. Connections to the bus are lost.
    void Stop() { End(SIGTERM); }
    void Kill() { End(SIGKILL); }

    /// Starts another bus at the same address, after Stop() or Kill().
    void Start() { Start(-1); }

    /// Suspends the process, and returns when it is suspended.
    void Suspend();
    void Resume() { Send(SIGCONT); }

private:
    void Start(int interrupt);
    void End(int signal);
    void Send(int signal);
    std::string ReadAddress(int interrupt);

    PrivateDirectory m_directory;
    ObjectPtr<GSubprocess> m_process;
    std::string m_address;
};

} // namespace Simulator
