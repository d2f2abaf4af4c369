// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/control.h"
#include "simulator/daemon.h"
#include "simulator/options.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Simulator;

constexpr int usageError = 2;

Owned<GDBusConnection> Connect(const std::string& address)
{
    std::string failure;
    Owned<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, Failure(failure)));
    if (!connection) {
        throw std::runtime_error("cannot reach the session bus: " + failure);
    }
    return connection;
}

std::string SessionBusAddress()
{
    std::string failure;
    const Owned<char> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, Failure(failure)));
    if (!address) {
        throw std::runtime_error("cannot find the session bus: " + failure);
    }
    return address.get();
}

/// A bus that lives as long as this object; the process's children find it as their session bus.
class PrivateBus
{
public:
    PrivateBus() : m_bus(g_test_dbus_new(G_TEST_DBUS_NONE)) { g_test_dbus_up(m_bus.get()); }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus() { g_test_dbus_stop(m_bus.get()); }

    std::string Address() const { return g_test_dbus_get_bus_address(m_bus.get()); }

private:
    Owned<GTestDBus> m_bus;
};

/// The daemon on a bus, and what ends it.
class Program
{
public:
    Program(const Options& options, const std::string& address)
        : m_connection(Connect(address)),
          m_daemon(m_connection.get(), InitialState(options), options.pace),
          m_control(m_connection.get(), m_daemon), m_loop(g_main_loop_new(nullptr, FALSE))
    {
        if (!m_daemon.OwnName()) {
            throw std::runtime_error(std::string("somebody else has the bus name ") + busName);
        }
        g_signal_connect_swapped(m_connection.get(), "closed", G_CALLBACK(g_main_loop_quit),
                                 m_loop.get());
        g_unix_signal_add(SIGTERM, OnSignal, this);
        g_unix_signal_add(SIGINT, OnSignal, this);
    }

    /// Until a signal comes or the bus goes.
    int Serve()
    {
        std::puts("ready");
        std::fflush(stdout);
        g_main_loop_run(m_loop.get());
        return EXIT_SUCCESS;
    }

    /// Until the command ends; its exit status, as a shell would tell it.
    int ServeDuring(const std::vector<std::string>& command)
    {
        std::vector<char*> argv;
        for (const std::string& word : command) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        std::string failure;
        const auto flags = static_cast<GSpawnFlags>(
            G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN);
        if (!g_spawn_async(nullptr, argv.data(), nullptr, flags, nullptr, nullptr, &m_child,
                           Failure(failure))) {
            throw std::runtime_error("cannot run the command: " + failure);
        }
        g_child_watch_add(m_child, OnChildEnd, this);
        while (m_child != 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return m_childStatus;
    }

private:
    static State InitialState(const Options& options)
    {
        State state = BuiltInState();
        if (options.madeUpPackages) {
            state.packages = MadeUpPackages(*options.madeUpPackages, options.dictionaryEntries);
        }
        return state;
    }

    static gboolean OnSignal(gpointer self)
    {
        Program& program = *static_cast<Program*>(self);
        if (program.m_child != 0) {
            kill(program.m_child, SIGTERM);
        }
        g_main_loop_quit(program.m_loop.get());
        return G_SOURCE_CONTINUE;
    }

    static void OnChildEnd(GPid, int status, gpointer self)
    {
        Program& program = *static_cast<Program*>(self);
        program.m_child = 0;
        program.m_childStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    Owned<GDBusConnection> m_connection;
    Daemon m_daemon;
    Control m_control;
    Owned<GMainLoop> m_loop;
    GPid m_child = 0;
    int m_childStatus = EXIT_FAILURE;
};

int MakePackage(const Options& options)
{
    const std::string failure = WritePackageFile(options.packagePath, options.package);
    if (!failure.empty()) {
        throw std::runtime_error("cannot write the package file: " + failure);
    }
    return EXIT_SUCCESS;
}

int Run(const Options& options)
{
    if (!options.packagePath.empty()) {
        return MakePackage(options);
    }
    if (!options.privateBus) {
        return Program(options, SessionBusAddress()).Serve();
    }
    const PrivateBus bus;
    return Program(options, bus.Address()).ServeDuring(options.command);
}

std::optional<Options> OptionsOrComplaint(int argc, char** argv)
{
    try {
        return ParseOptions(argc, argv);
    } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "emporium-simulator: %s\n", error.what());
        return std::nullopt;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::optional<Options> options = OptionsOrComplaint(argc, argv);
    if (!options) {
        return usageError;
    }
    try {
        return Run(*options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "emporium-simulator: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
