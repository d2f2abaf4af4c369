// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <glib.h>

#include <functional>
#include <memory>
#include <utility>

namespace Simulator {

/// Calls the function once, from the main loop.
inline guint RunLater(guint milliseconds, std::function<void()> function)
{
    using Function = std::function<void()>;
    auto call = [](gpointer data) -> gboolean {
        (*static_cast<Function*>(data))();
        return G_SOURCE_REMOVE;
    };
    auto destroy = [](gpointer data) {
        std::default_delete<Function>()(static_cast<Function*>(data));
    };
    auto owned = std::make_unique<Function>(std::move(function));
    return g_timeout_add_full(G_PRIORITY_DEFAULT, milliseconds, call, owned.release(), destroy);
}

/// At most one pending call. Destroying the timer cancels it.
class Timer
{
public:
    Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    ~Timer() { Stop(); }

    void Start(guint milliseconds, std::function<void()> function)
    {
        Stop();
        m_source = RunLater(milliseconds, [this, function = std::move(function)] {
            m_source = 0;
            function();
        });
    }

    void Stop()
    {
        if (m_source != 0) {
            g_source_remove(std::exchange(m_source, 0U));
        }
    }

    bool IsPending() const { return m_source != 0; }

private:
    guint m_source = 0;
};

} // namespace Simulator
