// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/properties.h"

#include <sdbus-c++/Message.h>

#include <string>

/// From bus bytes to the model. Every function reads in place, from where the message stands, and
/// throws sdbus::Error where the message holds something else than the contract says.
namespace Emporium::Decoder {

/// One (ssiii) record.
Operation ReadOperation(sdbus::Message& message);

/// One (ssssa{sv}) record; what the dictionary holds is read off and dropped.
Package ReadPackage(sdbus::Message& message);

/// A message whose body is one operation record, or nothing at all, which stands for a record of
/// empty texts and zeros.
Operation ReadOperationBody(sdbus::Message& message);

/// A message whose body is one package record.
Package ReadPackageBody(sdbus::Message& message);

/// A message whose body is one string.
std::string ReadStringBody(sdbus::Message& message);

/// A message without a body.
void ReadEmptyBody(sdbus::Message& message);

/// The reply with all properties, an a{sv}. Throws std::runtime_error naming the first property
/// that is missing, and sdbus::Error for the first one that holds another type.
Properties ReadProperties(sdbus::Message& reply);

/// The two ways to do that. The straight one decodes while it walks the reply once; it returns
/// false if it meets anything irregular (a missing or repeated property, another type), and leaves
/// it to the thorough one, which looks up one property after the other, to say what is wrong.
bool ReadPropertiesStraight(sdbus::Message& reply, Properties& properties);
Properties ReadPropertiesThoroughly(sdbus::Message& reply);

} // namespace Emporium::Decoder
