// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>
#include <emporium/package.h>
#include <emporium/result.h>

#include <string>
#include <vector>

namespace Emporium {

/// A snapshot of the daemon's state. The lists are in the daemon's order.
struct Properties
{
    std::string Architecture;
    std::string VeyraVersion;
    std::vector<Package> Packages;
    std::vector<Operation> Operations;
    std::vector<Operation> CompletedOperations;
};

extern template class SuccessResult<Properties>;
extern template class Result<Properties>;

} // namespace Emporium
