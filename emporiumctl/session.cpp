// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/session.h"

#include "emporiumctl/log_lines.h"

#include <glib.h>

namespace EmporiumCtl {

using Emporium::DaemonConnection;
using Emporium::DaemonState;

namespace {

std::string InParentheses(const std::vector<std::string>& reasons)
{
    return reasons.empty() ? "" : " (" + reasons.back() + ')';
}

/// Why the snapshot was not loaded. The library reports it only in a log line.
std::optional<Failure> LoadFailure(const std::vector<std::string>& errors)
{
    for (const std::string& text : errors) {
        if (text.find(".GetAllProperties dbus method (") == std::string::npos) {
            continue;
        }
        CallError error = ReadCallError(text);
        const std::string reason = " (" + error.Text() + ')';
        switch (error.outcome) {
        case CallOutcome::BusLost:
            return LostBus();
        case CallOutcome::NoDaemon:
        case CallOutcome::NotKnown:
            return FailureOf(ExitStatus::NoDaemon,
                             "the application-store daemon does not answer" + reason);
        case CallOutcome::Refused:
            return FailureOf(ExitStatus::Failed,
                             "the answer of the application-store daemon cannot be used" + reason);
        }
    }
    return {};
}

} // namespace

Failure LostBus()
{
    return FailureOf(ExitStatus::NoDaemon,
                     "the bus is lost" + InParentheses(LogLines::Get().TakeErrors()));
}

std::optional<Failure> Session::ConnectToBus()
{
    const auto report = [this] {
        Report(m_out, FailureOf(ExitStatus::NotKnown,
                                m_interruption.Reason() + " before the daemon answered"));
    };
    LogLines& log = LogLines::Get();
    log.TakeErrors();
    m_connection = std::make_unique<DaemonConnection>(
        Call(report, [] { return Emporium::GetDaemonConnection(); }));
    const std::vector<std::string> errors = log.TakeErrors();
    if (!*m_connection) {
        return FailureOf(ExitStatus::NoDaemon, "there is no session bus" + InParentheses(errors));
    }
    m_loadFailure = LoadFailure(errors);
    m_watch = std::make_unique<Emporium::DaemonWatch>(
        [this](DaemonState state) { m_changes.push_back(state); });
    return {};
}

std::optional<Failure> Session::Connect()
{
    if (auto failure = ConnectToBus()) {
        return failure;
    }
    if (!m_loadFailure && m_connection->GetArchitecture().empty()) {
        Complain("the application-store daemon reports an empty architecture");
    }
    return m_loadFailure;
}

std::optional<DaemonState> Session::NextChange()
{
    if (m_changes.empty()) {
        return {};
    }
    const DaemonState state = m_changes.front();
    m_changes.pop_front();
    return state;
}

std::variant<Snapshot, Failure> Session::Reload()
{
    LogLines& log = LogLines::Get();
    log.TakeErrors();
    const DaemonConnection fresh;
    if (auto failure = LoadFailure(log.TakeErrors())) {
        return *failure;
    }
    return Snapshot(fresh);
}

void Session::Iterate()
{
    g_main_context_iteration(nullptr, TRUE);
}

void Session::Settle()
{
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

} // namespace EmporiumCtl
