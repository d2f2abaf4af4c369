// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <glib.h>

namespace TestSupport {

inline int polls = 0;

inline gint CountingPoll(GPollFD* descriptors, guint count, gint timeout)
{
    ++polls;
    return g_poll(descriptors, count, timeout);
}

/// Returns how often the main loop wakes in 200 ms in which nothing happens. The time-out that ends the
/// measurement is one of the wake-ups.
inline int PollsWhileIdle()
{
    bool over = false;
    g_main_context_set_poll_func(nullptr, CountingPoll);
    polls = 0;
    g_timeout_add(
        200,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &over);
    while (!over) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_main_context_set_poll_func(nullptr, nullptr);
    return polls;
}

} // namespace TestSupport
