// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>

#include <vector>

/// The completed operations between two runs of the application: a directory of its own, with one
/// file for each operation. Whatever fails here is written to the log and goes no further.
namespace Emporium::CompletedOperationsCache {

/// The stored operations, those written first coming first. The directory is then removed: during a
/// run the operations are in memory only.
std::vector<Operation> ReadAndRemove();

/// Stores the operations, each in a file named by its UUID.
void Write(const std::vector<Operation>& operations);

} // namespace Emporium::CompletedOperationsCache
