// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/testing/deadline.h>

#include <chrono>
#include <functional>

namespace Emporium::Testing {

/// Runs the default GLib main loop, in which the library delivers its events, until `condition()` is
/// true. The condition is evaluated before the first iteration and after each one. Call it on the
/// thread that runs the main loop, usually the main thread, and not from a callback of the library.
/// @throws DeadlineExceeded when the time is over
///
///     RunUntil([&] { return finished; });
void RunUntil(const std::function<bool()>& condition,
              std::chrono::milliseconds deadline = defaultDeadline);

/// Runs the default GLib main loop until no source is ready. Never waits.
void RunWhatIsReady();

} // namespace Emporium::Testing
