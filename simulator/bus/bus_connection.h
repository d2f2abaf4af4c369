// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/contract.h"
#include "simulator/bus/variant.h"
#include "simulator/glib_ptr.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace Simulator {

namespace Contract = Emporium::Contract;

class NoBus : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The sender and the name of a signal; the sender is the daemon's object by default.
struct SignalAddress
{
    std::string path = Contract::objectPath;
    std::string interface = Contract::interfaceName;
    std::string name;
};

/// The simulator's connection to a message bus.
class BusConnection
{
public:
    /// @param address of the bus; empty for the session bus of the environment
    /// @throws NoBus when it cannot be reached
    explicit BusConnection(const std::string& address);
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;
    ~BusConnection();

    GDBusConnection* Get() const { return m_connection.get(); }

    /// @throws std::runtime_error when another program owns the name
    void Own(const char* name);
    void Release(const char* name);
    /// Emits a signal with a valid address.
    /// @throws BusError when the body cannot be sent
    void Emit(const SignalAddress& address, const Variant& body, unsigned count = 1);
    /// Flushes outgoing messages and disconnects.
    void Close();

    /// Calls the function once if the bus closes the connection.
    void OnLost(std::function<void()> function);

private:
    static void Closed(GDBusConnection*, gboolean remote, GError*, gpointer data);

    ObjectPtr<GDBusConnection> m_connection;
    std::function<void()> m_lost;
    gulong m_closedHandler = 0;
};

} // namespace Simulator
