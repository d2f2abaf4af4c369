// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/testing/environment.h>
#include <emporium/testing/private_bus.h>

#include <filesystem>
#include <string>

namespace Emporium::Testing {

/// The surroundings of an application under test: a private bus, a home and a cache of its own. While
/// the object lives, these variables of the process are set:
///
/// - DBUS_SESSION_BUS_ADDRESS: the private bus
/// - HOME: an empty directory
/// - XDG_CACHE_HOME: another one, where the library keeps completed operations
/// - VEYRA_APP_ID: the application's ID
///
/// The destructor restores them, but for XDG_CACHE_HOME: Emporium::GetDaemonConnection() stores the
/// completed operations when the process exits, and they must not get into the user's cache. It then
/// names a directory that the process removes as it exits.
///
/// Create it before the application first uses the library, which reads the environment then. The
/// connection of Emporium::GetDaemonConnection() lives until the process exits and stays with the bus
/// of the first test, so run each test in a process of its own, as `gtest_discover_tests()` and
/// `catch_discover_tests()` of CMake do.
///
/// Not thread-safe: it changes the environment.
///
///     Emporium::Testing::Session session;
///     Emporium::Testing::Simulator simulator(session);
///     // ... the application runs here
class Session
{
public:
    /// @param applicationID the value of VEYRA_APP_ID
    /// @throws Error, DeadlineExceeded if the bus does not start
    explicit Session(const std::string& applicationID = "org.example.test",
                     const PrivateBus::Limits& limits = {});
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    PrivateBus& Bus() { return m_bus; }
    const PrivateBus& Bus() const { return m_bus; }

    /// The variables above; others that are set here are restored too.
    Environment& Variables() { return m_environment; }

    /// The value of HOME, and a place for files: removed with the session.
    const std::filesystem::path& Home() const { return m_home; }

    /// The value of XDG_CACHE_HOME. Removed with the session.
    const std::filesystem::path& CacheHome() const { return m_cacheHome; }

    /// Writes a package file that the simulator can install, to the home, and returns its path. A file
    /// with the same ID is replaced.
    /// @throws Error if it cannot be written
    std::string PackageFile(const std::string& id, const std::string& version = "1.0") const;

private:
    PrivateBus m_bus;
    std::filesystem::path m_home;
    std::filesystem::path m_cacheHome;
    Environment m_environment;
};

} // namespace Emporium::Testing
