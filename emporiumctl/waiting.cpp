// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/waiting.h"

#include "emporiumctl/json.h"
#include "emporiumctl/output.h"

#include <glib-unix.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <iostream>

namespace EmporiumCtl {

using Emporium::Operation;

namespace {

bool HasEnded(const Operation& operation)
{
    return operation.GetStatus() == Common::OperationStatus::Succeeded ||
           operation.GetStatus() == Common::OperationStatus::Failed;
}

} // namespace

MainLoop::MainLoop()
    : m_sources{g_unix_signal_add(SIGINT, Interrupt, this),
                g_unix_signal_add(SIGTERM, Interrupt, this)}
{
}

MainLoop::~MainLoop()
{
    for (const guint source : m_sources) {
        g_source_remove(source);
    }
}

gboolean MainLoop::Interrupt(gpointer self)
{
    static_cast<MainLoop*>(self)->m_interrupted = true;
    return G_SOURCE_CONTINUE;
}

bool MainLoop::RunUntil(const bool& over, unsigned limit)
{
    if (limit > 0) {
        m_sources.push_back(g_timeout_add_seconds(limit, Interrupt, this));
    }
    while (!over && !m_interrupted) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return over;
}

OperationFollower::OperationFollower(const Emporium::DaemonConnection& connection,
                                     const Output& out)
    : m_out(out), m_subscription(connection.SubscribeToEvent(
                      Emporium::EventType::OperationStatusChanged,
                      std::function<void(const Operation&)>(
                          [this](const Operation& operation) { OnStatus(operation); })))
{
}

ExitStatus OperationFollower::Wait(const std::vector<std::string>& uuids, unsigned limit)
{
    m_awaited = uuids;
    m_over = AllEnded();
    MainLoop loop;
    if (!loop.RunUntil(m_over, limit)) {
        for (const std::string& uuid : m_awaited) {
            const auto last = m_last.find(uuid);
            if (last == m_last.end() || !HasEnded(last->second)) {
                ReportGoingOn(uuid);
            }
        }
        return ExitStatus::Interrupted;
    }
    const bool failed = std::any_of(uuids.begin(), uuids.end(), [this](const std::string& uuid) {
        return m_last.at(uuid).GetStatus() == Common::OperationStatus::Failed;
    });
    return failed ? ExitStatus::Failed : ExitStatus::Done;
}

void OperationFollower::OnStatus(const Operation& operation)
{
    m_last.insert_or_assign(operation.GetUUID(), operation);
    if (std::find(m_awaited.begin(), m_awaited.end(), operation.GetUUID()) != m_awaited.end()) {
        Report(operation);
        m_over = AllEnded();
    }
}

bool OperationFollower::AllEnded() const
{
    return std::all_of(m_awaited.begin(), m_awaited.end(), [this](const std::string& uuid) {
        const auto last = m_last.find(uuid);
        return last != m_last.end() && HasEnded(last->second);
    });
}

void OperationFollower::ReportGoingOn(const std::string& uuid)
{
    if (m_out.json) {
        m_out.stream << Line({{"event", "GoesOn"}, {"uuid", uuid}}) << std::endl;
    } else {
        m_out.stream << "The operation goes on: " << Printable(uuid) << std::endl;
    }
}

void OperationFollower::Report(const Operation& operation)
{
    if (m_out.json) {
        m_out.stream << Line(EventToJson("OperationStatusChanged", operation)) << std::endl;
        return;
    }
    m_out.stream << NameOf(operation.GetType()) << ' ' << Printable(operation.GetPackageID())
                 << ": " << NameOf(operation.GetStatus());
    if (operation.GetStatus() == Common::OperationStatus::Failed) {
        m_out.stream << " (" << Describe(operation.GetErrorCode()) << ')';
    }
    m_out.stream << std::endl;
}

} // namespace EmporiumCtl
