// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_connection.h"

#include <functional>

namespace Simulator {

/// An object on the bus that handles all method calls with one function.
class BusObject
{
public:
    using Handler = std::function<void(const char* method, GVariant* arguments,
                                       GDBusMethodInvocation* invocation)>;

    /// @throws std::runtime_error when the path is taken
    BusObject(BusConnection& bus, const char* path, const char* introspection, Handler handler);
    BusObject(const BusObject&) = delete;
    BusObject& operator=(const BusObject&) = delete;
    ~BusObject();

private:
    static void Call(GDBusConnection*, const char* sender, const char* path, const char* interface,
                     const char* method, GVariant* arguments, GDBusMethodInvocation* invocation,
                     gpointer data);

    BusConnection& m_bus;
    NodeInfoPtr m_node;
    Handler m_handler;
    guint m_registration = 0;
};

} // namespace Simulator
