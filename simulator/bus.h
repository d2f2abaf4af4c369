// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "glib_ptr.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace Simulator {

constexpr const char* daemonName = "org.velmora.Emporium";
constexpr const char* daemonPath = "/org/velmora/Emporium";
constexpr const char* daemonInterface = "org.velmora.Emporium";
constexpr const char* controlName = "org.velmora.Emporium.Simulator";
constexpr const char* controlPath = "/org/velmora/Emporium/Simulator";

class NoBus : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct SignalAddress
{
    std::string path = daemonPath;
    std::string interface = daemonInterface;
    std::string name;
};

/// The simulator's connection to a bus.
class Bus
{
public:
    /// @param address of the bus; empty for the session bus of the environment
    /// @throws NoBus when it cannot be reached
    explicit Bus(const std::string& address);
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    ~Bus();

    GDBusConnection* Get() const { return m_connection.get(); }

    /// @throws std::runtime_error when another program owns the name
    void Own(const char* name);
    void Release(const char* name);
    /// @throws BusError when the address or the body cannot be sent
    void Emit(const SignalAddress& address, const Variant& body, unsigned count = 1);
    /// Sends what is waiting and leaves the bus.
    void Close();

    /// Called once when the bus goes away by itself.
    void OnLost(std::function<void()> function);

private:
    static void Closed(GDBusConnection*, gboolean remote, GError*, gpointer data);

    ObjectPtr<GDBusConnection> m_connection;
    std::function<void()> m_lost;
    gulong m_closedHandler = 0;
};

} // namespace Simulator
