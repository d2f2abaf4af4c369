// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Detects process exit. Handles may be globals, and destroying one must not create a connection:
/// that would open a bus, and read and rewrite the cache.
namespace Emporium::ProcessExit {

/// Starts watching for the exit. Cheap; call it wherever an object is created that may live until
/// then.
void Watch();

/// True once the process has begun to destroy its globals.
bool HasBegun();

} // namespace Emporium::ProcessExit
