// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

namespace Simulator {

template <auto Release>
struct Releaser
{
    template <typename T>
    void operator()(T* pointer) const
    {
        Release(pointer);
    }
};

template <typename T>
using ObjectPtr = std::unique_ptr<T, Releaser<g_object_unref>>;
using TextPtr = std::unique_ptr<char, Releaser<g_free>>;
using LoopPtr = std::unique_ptr<GMainLoop, Releaser<g_main_loop_unref>>;
using NodeInfoPtr = std::unique_ptr<GDBusNodeInfo, Releaser<g_dbus_node_info_unref>>;

/// Receives a GError and frees it.
class ErrorSlot
{
public:
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    ~ErrorSlot() { g_clear_error(&m_error); }

    GError** operator&() { return &m_error; }
    std::string Message() const { return m_error != nullptr ? m_error->message : "unknown error"; }

private:
    GError* m_error = nullptr;
};

} // namespace Simulator
