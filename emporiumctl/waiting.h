// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/exit_status.h"
#include "emporiumctl/output.h"

#include <emporium/emporium.h>

#include <glib.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Runs the main loop until a condition holds, or until Ctrl-C, SIGTERM or a timeout.
class MainLoop
{
public:
    MainLoop();
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;
    ~MainLoop();

    /// False on Ctrl-C or SIGTERM, or after this many seconds (0: no limit).
    bool RunUntil(const bool& over, unsigned limit);

private:
    static gboolean Interrupt(gpointer self);

    std::vector<guint> m_sources;
    bool m_interrupted = false;
};

/// Waits for the end of operations, by events. Subscribes on construction, before operations are
/// created: an operation may end before the reply that creates it arrives.
class OperationFollower
{
public:
    OperationFollower(const Emporium::DaemonConnection& connection, const Output& out);
    OperationFollower(const OperationFollower&) = delete;
    OperationFollower& operator=(const OperationFollower&) = delete;

    ExitStatus Wait(const std::vector<std::string>& uuids, unsigned limit);

private:
    static gboolean OnSecond(gpointer self);

    void OnStatus(const Emporium::Operation& operation);
    bool AllEnded() const;
    void Report(const Emporium::Operation& operation);
    void ReportUnfinished(const std::string& uuid);
    std::string Describe(const Emporium::Operation& operation) const;

    /// On a terminal: redraws one line for each operation.
    void Draw();

    std::size_t m_drawn = 0;
    std::map<std::string, double> m_seconds; ///< Duration of each ended operation.
    std::unique_ptr<GTimer, void (*)(GTimer*)> m_timer{g_timer_new(), g_timer_destroy};

    const Output& m_out;
    std::map<std::string, Emporium::Operation> m_last;
    std::vector<std::string> m_awaited;
    bool m_over = false;
    Emporium::EventSubscription m_subscription;
};

} // namespace EmporiumCtl
