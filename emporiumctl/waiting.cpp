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
    Draw();
    const guint second = m_out.terminal ? g_timeout_add_seconds(1, OnSecond, this) : 0;
    MainLoop loop;
    const bool over = loop.RunUntil(m_over, limit);
    if (second != 0) {
        g_source_remove(second);
    }
    if (!over) {
        for (const std::string& uuid : m_awaited) {
            const auto last = m_last.find(uuid);
            if (last == m_last.end() || !IsFinished(last->second.GetStatus())) {
                ReportUnfinished(uuid);
            }
        }
        return ExitStatus::Interrupted;
    }
    const bool failed = std::any_of(uuids.begin(), uuids.end(), [this](const std::string& uuid) {
        return m_last.at(uuid).GetStatus() == Common::OperationStatus::Failed;
    });
    return failed ? ExitStatus::Failed : ExitStatus::Done;
}

gboolean OperationFollower::OnSecond(gpointer self)
{
    static_cast<OperationFollower*>(self)->Draw();
    return G_SOURCE_CONTINUE;
}

void OperationFollower::OnStatus(const Operation& operation)
{
    m_last.insert_or_assign(operation.GetUUID(), operation);
    if (IsFinished(operation.GetStatus())) {
        m_seconds[operation.GetUUID()] = g_timer_elapsed(m_timer.get(), nullptr);
    }
    if (std::find(m_awaited.begin(), m_awaited.end(), operation.GetUUID()) != m_awaited.end()) {
        Report(operation);
        m_over = AllEnded();
    }
}

bool OperationFollower::AllEnded() const
{
    return std::all_of(m_awaited.begin(), m_awaited.end(), [this](const std::string& uuid) {
        const auto last = m_last.find(uuid);
        return last != m_last.end() && IsFinished(last->second.GetStatus());
    });
}

void OperationFollower::ReportUnfinished(const std::string& uuid)
{
    if (m_out.json) {
        m_out.stream << Line({{"event", "GoesOn"}, {"uuid", uuid}}) << '\n' << std::flush;
    } else {
        m_out.stream << "The operation goes on: " << Printable(uuid) << '\n' << std::flush;
    }
}

void OperationFollower::Report(const Operation& operation)
{
    if (m_out.terminal) {
        Draw();
    } else if (m_out.json) {
        m_out.stream << Line(EventToJson("OperationStatusChanged", operation)) << '\n'
                     << std::flush;
    } else {
        m_out.stream << Describe(operation) << '\n' << std::flush;
    }
}

std::string OperationFollower::Describe(const Operation& operation) const
{
    std::string text = NameOf(operation.GetType()) + ' ' + Printable(operation.GetPackageID()) +
                       ": " + NameOf(operation.GetStatus());
    if (operation.GetStatus() == Common::OperationStatus::Failed) {
        text += " (" + EmporiumCtl::Describe(operation.GetErrorCode()) + ')';
    }
    return text;
}

void OperationFollower::Draw()
{
    if (!m_out.terminal) {
        return;
    }
    if (m_drawn > 0) {
        m_out.stream << "\033[" << m_drawn << 'A';
    }
    const double now = g_timer_elapsed(m_timer.get(), nullptr);
    for (const std::string& uuid : m_awaited) {
        const auto last = m_last.find(uuid);
        const auto took = m_seconds.find(uuid);
        const int seconds = static_cast<int>(took != m_seconds.end() ? took->second : now);
        const std::string text =
            last != m_last.end() ? Describe(last->second) : "waiting for " + Printable(uuid);
        Colour colour = Colour::None;
        if (last != m_last.end() && IsFinished(last->second.GetStatus())) {
            colour = last->second.GetStatus() == Common::OperationStatus::Failed ? Colour::Red
                                                                                 : Colour::Green;
        }
        const std::string line = m_out.Fit(std::to_string(seconds) + " s  " + text);
        m_out.stream << "\r\033[K" << m_out.Paint(colour, line) << '\n';
    }
    m_out.stream.flush();
    m_drawn = m_awaited.size();
}

} // namespace EmporiumCtl
