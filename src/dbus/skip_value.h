// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <sdbus-c++/Message.h>

namespace Emporium::Decoder {

/// Skips the variant at the message's position, of any type. Reads all of it, because the bus library
/// offers no other way to skip; damage inside throws sdbus::Error.
void SkipVariant(sdbus::Message& message);

} // namespace Emporium::Decoder
