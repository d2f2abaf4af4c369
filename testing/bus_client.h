// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <string>

namespace Emporium::Testing {

template <typename T>
using ObjectPtr = ::Simulator::ObjectPtr<T>;
using VariantPtr = std::unique_ptr<GVariant, ::Simulator::Releaser<g_variant_unref>>;
using ErrorPtr = std::unique_ptr<GError, ::Simulator::Releaser<g_error_free>>;

/// Where a call is sent.
struct BusObject
{
    std::string name;
    const char* path;
    const char* interface;
};

/// A connection of the kit's own, by GIO: the library's bus code must not test itself.
class BusClient
{
public:
    /// @throws Error, DeadlineExceeded
    BusClient(const std::string& address, std::chrono::milliseconds deadline);
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;
    ~BusClient();

    /// How long each of the next calls may take.
    void SetDeadline(std::chrono::milliseconds deadline) { m_deadline = deadline; }

    /// Returns the reply, or nothing and the error. Takes a floating reference to the arguments.
    VariantPtr Call(const BusObject& object, const char* method, GVariant* arguments,
                    ErrorPtr& error) const;

    /// Calls the bus itself.
    /// @throws Error, DeadlineExceeded
    VariantPtr CallBus(const char* method, GVariant* arguments) const;

private:
    ObjectPtr<GDBusConnection> m_connection;
    std::chrono::milliseconds m_deadline;
};

} // namespace Emporium::Testing
