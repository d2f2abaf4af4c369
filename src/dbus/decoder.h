// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/properties.h"

#include <sdbus-c++/Message.h>

#include <string>

/// From bus bytes to the model. Every function reads in place, from the current position of the
/// message, and throws sdbus::Error where the content deviates from the contract.
namespace Emporium::Decoder {

/// A body of one operation record. An empty body yields a default-constructed operation.
Operation ReadOperationBody(sdbus::Message& message);

/// A body of one package record. Its dictionary is skipped.
Package ReadPackageBody(sdbus::Message& message);

std::string ReadStringBody(sdbus::Message& message);

/// The reply with all properties, an a{sv}; of a repeated key the first value counts. Throws
/// std::runtime_error naming the first property that is missing, else sdbus::Error for the first
/// one that holds another type.
Properties ReadProperties(sdbus::Message& reply);

} // namespace Emporium::Decoder
