// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"

#include <string>

namespace Simulator {

/// The body of a message with one argument.
Variant Body(const Variant& argument);

/// The body of a message without arguments.
Variant EmptyBody();

/// Refuses escapes in GVariant text format that are no Unicode characters: GLib's parser does not check
/// them, and fails an assertion.
/// @throws std::invalid_argument naming the first one
void RequireCodePoints(const std::string& text);

/// Refuses a value that the bus cannot transport, also inside a variant. It is a message's body or a
/// part of one.
/// @throws std::invalid_argument with the reason
void RequireTransportable(const Variant& value);

/// A value in GVariant text format, of a type that the bus can transport.
/// @throws std::invalid_argument with the reason
Variant ParseBusValue(const std::string& text);

/// The body of a message in the same format: a tuple, or an empty text for no arguments.
/// @throws std::invalid_argument with the reason
Variant ParseBody(const std::string& text);

} // namespace Simulator
