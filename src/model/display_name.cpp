// SPDX-License-Identifier: BSD-3-Clause
#include "model/display_name.h"

namespace Emporium {

const char* DisplayName(Common::OperationType type)
{
    switch (type) {
    case Common::OperationType::Install:
        return "OperationType::Install";
    case Common::OperationType::Upgrade:
        return "OperationType::Upgrade";
    case Common::OperationType::Remove:
        return "OperationType::Remove";
    }
    return "OperationType::(Unknown)";
}

} // namespace Emporium
