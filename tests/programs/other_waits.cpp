// SPDX-License-Identifier: BSD-3-Clause
/// Preloaded into a program: changes how long it waits, so that a test need not wait that long.
/// $MILLISECONDS_PER_SECOND is the new length of a second. The seconds that the program has asked the
/// main loop for are written to the file $ASKED_SECONDS.
#include <glib.h>

#include <cstdlib>
#include <fstream>
#include <sys/time.h>

namespace {

unsigned Milliseconds(unsigned seconds)
{
    return seconds * static_cast<unsigned>(std::atoi(std::getenv("MILLISECONDS_PER_SECOND")));
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

guint g_timeout_add_seconds_full(gint priority, guint seconds, GSourceFunc function, gpointer data,
                                 GDestroyNotify notify)
{
    if (const char* const path = std::getenv("ASKED_SECONDS")) {
        std::ofstream(path) << seconds;
    }
    return g_timeout_add_full(priority, Milliseconds(seconds), function, data, notify);
}

unsigned alarm(unsigned seconds) noexcept
{
    const auto [whole, rest] = std::ldiv(static_cast<long>(Milliseconds(seconds)), 1000);
    const itimerval timer{{0, 0}, {whole, 1000 * rest}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    return 0;
}
}
#pragma GCC visibility pop
