// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/bus_object.h"

#include <stdexcept>

namespace Simulator {

BusObject::BusObject(BusConnection& bus, const char* path, const char* introspection,
                     Handler handler)
    : m_bus(bus), m_node(g_dbus_node_info_new_for_xml(introspection, nullptr)),
      m_handler(std::move(handler))
{
    static const GDBusInterfaceVTable table = {Call, nullptr, nullptr, {}};
    ErrorSlot error;
    m_registration = g_dbus_connection_register_object(m_bus.Get(), path, m_node->interfaces[0],
                                                       &table, this, nullptr, &error);
    if (m_registration == 0) {
        throw std::runtime_error(error.Message());
    }
}

BusObject::~BusObject()
{
    g_dbus_connection_unregister_object(m_bus.Get(), m_registration);
}

void BusObject::Call(GDBusConnection*, const char*, const char*, const char*, const char* method,
                     GVariant* arguments, GDBusMethodInvocation* invocation, gpointer data)
{
    static_cast<BusObject*>(data)->m_handler(method, arguments, invocation);
}

} // namespace Simulator
