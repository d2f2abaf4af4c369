// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/testing/deadline.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace Emporium::Testing {

/// A dbus-daemon of the test's own, which starts no services. Destroying the object stops the process
/// and removes its directory. The process ends with the thread that started it, even if the test is
/// killed, and Ctrl-C does not reach it.
///
/// The object does not change the environment; Session does.
///
///     Emporium::Testing::PrivateBus bus;
///     environment.Set("DBUS_SESSION_BUS_ADDRESS", bus.Address());
class PrivateBus
{
public:
    /// Limits of the bus by their names in dbus-daemon's configuration. They replace those of a
    /// session bus.
    using Limits = std::map<std::string, unsigned>;

    /// @throws Error with dbus-daemon's reason if it does not start
    /// @throws DeadlineExceeded if it does not start in time
    explicit PrivateBus(const Limits& limits = {},
                        std::chrono::milliseconds deadline = defaultDeadline);
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    /// The address, for DBUS_SESSION_BUS_ADDRESS.
    const std::string& Address() const;

    /// A directory for the files of the test, removed with the bus.
    const std::filesystem::path& Directory() const;

    /// Stops the process, with SIGTERM or SIGKILL, and waits for its end. All connections are lost.
    void Stop();
    void Kill();

    /// Starts another bus at the same address, after Stop() or Kill().
    /// @throws Error with dbus-daemon's reason if it does not start
    void Start();

    /// Suspends the process: its clients are neither disconnected nor answered. It is suspended when
    /// the function returns.
    void Suspend();
    void Resume();

    /// True if some connection to the bus owns the name.
    /// @throws Error if the bus does not run
    /// @throws DeadlineExceeded if the bus does not answer in time
    bool NameHasOwner(const std::string& name,
                      std::chrono::milliseconds deadline = defaultDeadline) const;

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Emporium::Testing
