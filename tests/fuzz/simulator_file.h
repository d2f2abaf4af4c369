// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "fuzz/input.h"
#include "simulator/bus/message_body.h"
#include "simulator/bus/wire_records.h"
#include "simulator/files/input_error.h"
#include "simulator/glib_ptr.h"

#include <gio/gio.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Fuzz {

/// Reads the input as a file of the user. Nothing where it is refused, which is the only failure that
/// is allowed; a complaint of GLib about its caller is a finding.
template <typename Read>
auto ReadUserFile(const std::uint8_t* data, std::size_t size, Read read)
    -> std::optional<decltype(read(std::string()))>
{
    static const GLogLevelFlags fatal = g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    static_cast<void>(fatal);
    static const InputFile file;
    file.Write(Input(data, size).Rest());
    try {
        return read(file.Path());
    } catch (const Simulator::InputError&) {
        return std::nullopt;
    }
}

/// What was read must be something that the bus can transport.
inline void RequireSendable(const Simulator::Variant& body)
{
    const Simulator::ObjectPtr<GDBusMessage> message(
        g_dbus_message_new_signal("/a", "a.b", "Signal"));
    g_dbus_message_set_body(message.get(), body.Get());
    g_dbus_message_set_serial(message.get(), 1);
    gsize size = 0;
    Simulator::ErrorSlot error;
    const Simulator::TextPtr blob(reinterpret_cast<char*>(g_dbus_message_to_blob(
        message.get(), &size, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, &error)));
    Require(blob != nullptr, error.Message().c_str());
    const Simulator::ObjectPtr<GDBusMessage> received(
        g_dbus_message_new_from_blob(reinterpret_cast<guchar*>(blob.get()), size,
                                     G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, &error));
    Require(received != nullptr, error.Message().c_str());
}

inline void RequireSendableRecord(const std::string& text)
{
    Require(text.find('\0') == std::string::npos, "a text has no zero byte, which would end it");
    RequireSendable(Simulator::Body(Simulator::ToVariant(text)));
}

inline void RequireSendableRecord(const Simulator::Package& package)
{
    for (const std::string& text :
         {package.id, package.version, package.subgroup, package.developer}) {
        RequireSendableRecord(text);
    }
    RequireSendable(Simulator::Body(Simulator::ToVariant(package)));
}

inline void RequireSendableRecord(const Simulator::Operation& operation)
{
    RequireSendableRecord(operation.uuid);
    RequireSendableRecord(operation.package);
    RequireSendable(Simulator::Body(Simulator::ToVariant(operation)));
}

} // namespace Fuzz
