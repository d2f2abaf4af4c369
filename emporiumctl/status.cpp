// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/json.h"

#include <glib.h>

namespace EmporiumCtl {

using Emporium::DaemonState;

namespace {

void Print(Output& out, const Snapshot& snapshot)
{
    const Json status = {{"architecture", snapshot.architecture},
                         {"version", snapshot.version},
                         {"packages", snapshot.packages.size()},
                         {"active", snapshot.active.size()},
                         {"completed", LatestOfEachUUID(snapshot.completed).size()}};
    if (out.Json()) {
        out.Document(status);
        return;
    }
    out.Line("The daemon answers.");
    for (const auto& [name, value] : status.items()) {
        out.Line(name + ": " + (value.is_string() ? value.get<std::string>() : value.dump()));
    }
}

/// True once the limit is reached. Wakes the main loop then.
class Limit
{
public:
    explicit Limit(unsigned seconds)
    {
        if (seconds > 0) {
            m_source =
                g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, seconds, Reach, this, nullptr);
        }
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit()
    {
        if (m_source != 0) {
            g_source_remove(m_source);
        }
    }

    bool Reached() const { return m_reached; }

private:
    static gboolean Reach(gpointer self)
    {
        static_cast<Limit*>(self)->m_reached = true;
        return G_SOURCE_CONTINUE;
    }

    guint m_source = 0;
    bool m_reached = false;
};

ExitStatus ReportInterrupted(Session& session, Output& out)
{
    return Report(out, FailureOf(ExitStatus::NotKnown, session.TheInterruption().Reason() +
                                                           " before the daemon answered"));
}

/// Waits until the daemon answers. One that has the name but does not answer is asked again when it
/// appears again.
ExitStatus WaitForDaemon(Session& session, Output& out, unsigned seconds)
{
    const Limit limit(seconds);
    while (!session.Interrupted()) {
        const auto state = session.NextChange();
        if (state == DaemonState::Disconnected) {
            return Report(out, LostBus());
        }
        if (state == DaemonState::Present) {
            const auto loaded = session.Call([&] { ReportInterrupted(session, out); },
                                             [&] { return session.Reload(); });
            if (const auto* snapshot = std::get_if<Snapshot>(&loaded)) {
                Print(out, *snapshot);
                return ExitStatus::Done;
            }
            if (std::get<Failure>(loaded).status != ExitStatus::NoDaemon) {
                return Report(out, std::get<Failure>(loaded));
            }
        }
        if (limit.Reached()) {
            return Report(out, FailureOf(ExitStatus::NoDaemon,
                                         "the application-store daemon has not appeared within " +
                                             std::to_string(seconds) + " s"));
        }
        if (!state) {
            session.Iterate();
        }
    }
    return ReportInterrupted(session, out);
}

} // namespace

ExitStatus Status(Session& session, Output& out, const StatusOptions& options)
{
    const auto failure = session.Connect();
    if (!failure) {
        Print(out, Snapshot(session.Connection()));
        return ExitStatus::Done;
    }
    if (!options.wait || failure->status != ExitStatus::NoDaemon || !session.HasBus()) {
        return Report(out, *failure);
    }
    return WaitForDaemon(session, out, options.limit);
}

} // namespace EmporiumCtl
