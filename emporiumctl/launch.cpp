// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/json.h"

namespace EmporiumCtl {

using Emporium::DaemonState;

namespace {

using Launcher = Emporium::Result<void> (Emporium::DaemonConnection::*)(const std::string&) const;

/// The library passes on the message of the error alone. If the daemon or the bus is lost after the
/// call, that was the cause.
CallError LaunchError(Session& session, const std::string& text)
{
    CallError error = ReadCallError(text);
    if (error.outcome == CallOutcome::Refused && !error.code) {
        session.Settle();
        if (session.State() == DaemonState::Disconnected) {
            error.outcome = CallOutcome::BusLost;
        } else if (session.State() == DaemonState::Absent) {
            error.outcome = CallOutcome::NotKnown;
        }
    }
    if (error.outcome == CallOutcome::NotKnown) {
        error.message = "the outcome is not known: " + error.message;
    }
    return error;
}

ExitStatus Launch(Session& session, Output& out, const std::string& id, Launcher launcher,
                  const char* event)
{
    const auto report = [&] {
        Failure failure = FailureOf(ExitStatus::NotKnown, "the outcome is not known: " +
                                                              session.TheInterruption().Reason());
        failure.target = id;
        Report(out, failure);
    };
    if (const auto error = CheckArgument(id)) {
        return Report(out, {ExitStatus::Failed, *error, id});
    }
    const auto result = session.Call(report, [&] { return (session.Connection().*launcher)(id); });
    if (!result) {
        const CallError error = LaunchError(session, result.GetError());
        return Report(out, {StatusOf(error.outcome), error, id});
    }
    if (out.Json()) {
        out.Document({{"event", event}, {"target", id}});
    }
    return ExitStatus::Done;
}

} // namespace

ExitStatus Start(Session& session, Output& out, const std::string& id)
{
    return Launch(session, out, id, &Emporium::DaemonConnection::Start, "Started");
}

ExitStatus Restart(Session& session, Output& out, const std::string& id)
{
    return Launch(session, out, id, &Emporium::DaemonConnection::Restart, "Restarted");
}

} // namespace EmporiumCtl
