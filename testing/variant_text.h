// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "testing/bus_client.h"

#include <emporium/testing/daemon_interface.h>

#include <gio/gio.h>

#include <string>

namespace Emporium::Testing {

/// Returns the text, if it can be a D-Bus string: GLib refuses any other one with a message only.
/// @throws Error
const char* Utf8(const std::string& text);

/// The value in GVariant text format, with its types. Takes the reference, floating or not.
std::string TextOf(GVariant* value);

/// Return a floating reference.
/// @throws Error
GVariant* ToVariant(const PackageRecord& package);
GVariant* ToVariant(const OperationRecord& operation);

} // namespace Emporium::Testing
