// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/contract.h"
#include "simulator/bus/private_bus.h"
#include "simulator/faults/control_contract.h"
#include "support/gobject.h"
#include "support/output.h"
#include "support/process.h"
#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

using Strings = std::vector<std::string>;

/// The deadline for an expected event: long enough for a machine that runs many tests at once.
constexpr int patienceMilliseconds = 90000;

/// Runs the simulator in a child process and controls it over the bus.
class SimulatorProcess
{
public:
    explicit SimulatorProcess(const std::string& address, Strings options = {})
        : m_connection(g_dbus_connection_new_for_address_sync(
              address.c_str(),
              static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
              nullptr, nullptr, nullptr))
    {
        options.insert(options.begin(), EMPORIUM_SIMULATOR);
        m_process.emplace(options);
        if (m_process->ReadLine() != "ready") {
            throw std::runtime_error("the simulator does not start");
        }
        const Owned<GVariant> owner =
            Call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                 "GetNameOwner", g_variant_new("(s)", Emporium::Contract::busName));
        const char* name = nullptr;
        g_variant_get(owner.get(), "(&s)", &name);
        m_uniqueName = name;
    }

    void Stop() { m_process->Stop(); }
    void Kill() { m_process->Kill(); }
    void Suspend() { m_process->Suspend(); }
    void Resume() { m_process->Resume(); }
    int Wait() { return m_process->Wait(); }

    /// Calls a verb of the control interface.
    template <typename... Arguments>
    Owned<GVariant> Tell(const char* verb, const char* format, Arguments... arguments)
    {
        namespace Control = Simulator::ControlContract;
        return Call(m_uniqueName.c_str(), Control::objectPath, Control::interfaceName, verb,
                    g_variant_new(format, arguments...));
    }

    void Emit(const char* signal, const char* body, unsigned count = 1)
    {
        Tell("EmitSignal", "(ssu)", signal, body, count);
    }

    /// Replaces a value in the reply of GetAllProperties. `text` is in GVariant text format.
    void SetProperty(const char* name, const char* text)
    {
        GVariant* const value = g_variant_parse(nullptr, text, nullptr, nullptr, nullptr);
        Tell("SetProperty", "(sv)", name, value);
        g_variant_unref(value);
    }

    /// Returns how often the method was called, and the argument of the last call.
    std::pair<unsigned, std::string> Calls(const char* method)
    {
        const Owned<GVariant> reply = Tell("Calls", "(s)", method);
        unsigned count = 0;
        const char* argument = nullptr;
        g_variant_get(reply.get(), "(u&s)", &count, &argument);
        return {count, argument};
    }

    bool NameHasOwner(const char* name) const
    {
        const Owned<GVariant> reply =
            Call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                 "NameHasOwner", g_variant_new("(s)", name));
        gboolean owned = FALSE;
        g_variant_get(reply.get(), "(b)", &owned);
        return owned != FALSE;
    }

    GDBusConnection* Connection() { return m_connection.get(); }

private:
    Owned<GVariant> Call(const char* destination, const char* path, const char* interface,
                         const char* method, GVariant* arguments) const
    {
        GError* raw = nullptr;
        Owned<GVariant> reply(g_dbus_connection_call_sync(
            m_connection.get(), destination, path, interface, method, arguments, nullptr,
            G_DBUS_CALL_FLAGS_NONE, patienceMilliseconds, nullptr, &raw));
        const Owned<GError> error(raw);
        if (error) {
            throw std::runtime_error(error->message);
        }
        return reply;
    }

    Owned<GDBusConnection> m_connection;
    std::optional<Process> m_process;
    std::string m_uniqueName;
};

/// Gives each test its own bus and an application's environment. Each test starts the simulator itself.
class BusTest : public testing::Test
{
protected:
    explicit BusTest(const Simulator::PrivateBus::Limits& limits = {}) : bus(limits)
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", bus.Address().c_str(), 1);
        setenv("HOME", directory.Path().c_str(), 1);
        setenv("VEYRA_APP_ID", "org.example.test", 1);
    }

    /// Runs the main loop until `done()`. Fails the test if that takes too long.
    template <typename Done>
    static void RunUntil(Done done)
    {
        bool givenUp = false;
        const guint limit = g_timeout_add(
            patienceMilliseconds,
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_CONTINUE;
            },
            &givenUp);
        while (!done() && !givenUp) {
            g_main_context_iteration(nullptr, TRUE);
        }
        g_source_remove(limit);
        ASSERT_FALSE(givenUp) << "timed out";
    }

    /// Runs the main loop until no source is ready.
    static void RunWhatIsReady()
    {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    /// Writes a package file that the simulator accepts, and returns its path.
    std::string PackageFile(const std::string& id, const std::string& version = "1.0")
    {
        const std::string path = (directory.Path() / (id + ".pkg")).string();
        std::ofstream(path) << "[Package]\nId=" << id << "\nVersion=" << version
                            << "\nDeveloper=developer\nSubgroup=regular\n";
        return path;
    }

    static Emporium::OperationRequest InstallRequest(const std::string& path)
    {
        return Emporium::OperationRequest::Builder()
            .SetOperationType(Common::OperationType::Install)
            .SetPackagePath(path)
            .Build();
    }

    static Emporium::OperationRequest RemoveRequest(const std::string& id)
    {
        return Emporium::OperationRequest::Builder()
            .SetOperationType(Common::OperationType::Remove)
            .SetPackageID(id)
            .Build();
    }

    TemporaryDirectory directory;
    CacheHome cacheHome;
    Simulator::PrivateBus bus;
};

} // namespace TestSupport
