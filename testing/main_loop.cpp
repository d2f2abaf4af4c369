// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/testing/error.h>
#include <emporium/testing/main_loop.h>

#include "testing/duration.h"

#include <glib.h>

namespace Emporium::Testing {

namespace {

/// A source of the default context that becomes ready once, when the time is over.
class Limit
{
public:
    explicit Limit(std::chrono::milliseconds deadline)
        : m_id(g_timeout_add(Milliseconds(deadline), Expire, this))
    {
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit()
    {
        if (!m_over) {
            g_source_remove(m_id);
        }
    }

    bool IsOver() const { return m_over; }

private:
    static gboolean Expire(gpointer self)
    {
        static_cast<Limit*>(self)->m_over = true;
        return G_SOURCE_REMOVE;
    }

    bool m_over = false;
    guint m_id;
};

} // namespace

void RunUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline)
{
    const Limit limit(deadline);
    while (!condition()) {
        if (limit.IsOver()) {
            throw DeadlineExceeded("the condition was still false after " + Text(deadline));
        }
        g_main_context_iteration(nullptr, TRUE);
    }
}

void RunWhatIsReady()
{
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

} // namespace Emporium::Testing
