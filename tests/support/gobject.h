// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gio/gio.h>

#include <memory>

namespace TestSupport {

struct Unref
{
    void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
};

template <typename T>
using Owned = std::unique_ptr<T, Unref>;

} // namespace TestSupport
