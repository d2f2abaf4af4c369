// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/operation_type.h>

namespace Emporium {

/// The name used in messages. A number without an enumerator is "OperationType::(Unknown)".
const char* DisplayName(Common::OperationType type);

} // namespace Emporium
