// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>

#include <vector>

/// Keeps the completed operations between two runs of the application, one file each in a directory
/// of its own. Failures are logged and reported nowhere else.
namespace Emporium::CompletedOperationsCache {

/// The stored operations, oldest file first. Removes the directory: during a run the operations are
/// in memory only.
std::vector<Operation> ReadAndRemove();

/// Stores the operations in list order, each in a file named by its UUID. Of several operations
/// with the same UUID only the last one is written.
void Write(const std::vector<Operation>& operations);

} // namespace Emporium::CompletedOperationsCache
