// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Tells whether the process is on its way out. Handles may be globals, and a handle that goes then
/// must not have a connection made for it: it would open a bus, read the cache and write it anew.
namespace Emporium::ProcessExit {

/// Has the end of the process noticed from now on. Cheap; to be called whenever something is made
/// that may live until then.
void Watch();

/// True once the process has begun to destroy its globals.
bool HasBegun();

} // namespace Emporium::ProcessExit
