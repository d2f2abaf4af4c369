// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/operation_type.h>
#include <emporium/event_type.h>

namespace Emporium {

/// The names by which messages call these values; numbers without an enumerator are "(Unknown)".
const char* DisplayName(Common::OperationType type);
const char* DisplayName(EventType type);

} // namespace Emporium
