// SPDX-License-Identifier: BSD-3-Clause
#include "bus_object.h"

#include <stdexcept>

namespace Simulator {

BusObject::BusObject(Bus& bus, const char* path, const char* introspection, Handler handler)
    : bus_(bus), node_(g_dbus_node_info_new_for_xml(introspection, nullptr)),
      handler_(std::move(handler))
{
    static const GDBusInterfaceVTable table = {Call, nullptr, nullptr, {}};
    ErrorSlot error;
    registration_ = g_dbus_connection_register_object(bus_.Get(), path, node_->interfaces[0],
                                                      &table, this, nullptr, &error);
    if (registration_ == 0)
        throw std::runtime_error(error.Message());
}

BusObject::~BusObject()
{
    g_dbus_connection_unregister_object(bus_.Get(), registration_);
}

void BusObject::Call(GDBusConnection*, const char*, const char*, const char*, const char* method,
                     GVariant* arguments, GDBusMethodInvocation* invocation, gpointer data)
{
    static_cast<BusObject*>(data)->handler_(method, arguments, invocation);
}

} // namespace Simulator
