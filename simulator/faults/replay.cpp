// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/replay.h"

#include "dbus/contract.h"
#include "simulator/bus/message_body.h"

#include <algorithm>

namespace Simulator {

namespace Contract = Emporium::Contract;

Replay::Replay(std::vector<RecordedEvent> events, double speed, Store& store, EmitSignal emit,
               std::function<void(bool)> present)
    : m_events(std::move(events)), m_speed(speed), m_store(store), m_emit(std::move(emit)),
      m_present(std::move(present))
{
}

void Replay::Start()
{
    if (m_startMicroseconds != 0) {
        return;
    }
    m_startMicroseconds = g_get_monotonic_time();
    ScheduleNext();
}

void Replay::ScheduleNext()
{
    if (m_next == m_events.size()) {
        return;
    }
    const double due = m_events[m_next].offsetMilliseconds / m_speed;
    const double now = static_cast<double>(g_get_monotonic_time() - m_startMicroseconds) / 1000.0;
    const double wait = std::clamp(due - now, 0.0, double{G_MAXINT32});
    m_timer.Start(static_cast<guint>(wait), [this] {
        Play(m_events[m_next++]);
        ScheduleNext();
    });
}

void Replay::Play(const RecordedEvent& event)
{
    std::visit([this](const auto& content) { Play(content); }, event.content);
}

void Replay::Play(const Operation& operation)
{
    if (IsFinished(operation)) {
        m_store.PutCompleted(operation);
    } else {
        m_store.PutActive(operation);
    }
    m_emit(Contract::Signal::operationStatusChanged, Body(ToVariant(operation)));
}

void Replay::Play(const PackageArrival& arrival)
{
    m_store.PutPackage(arrival.package);
    m_emit(arrival.upgrade ? Contract::Signal::packageUpgraded : Contract::Signal::packageInstalled,
           Body(ToVariant(arrival.package)));
}

void Replay::Play(const PackageRemoval& removal)
{
    m_store.RemovePackage(removal.id);
    m_emit(Contract::Signal::packageRemoved, Body(ToVariant(removal.id)));
}

void Replay::Play(const DaemonLoss&)
{
    m_present(false);
}

void Replay::Play(const DaemonReturn& daemon)
{
    m_store.Replace(daemon.lists);
    m_present(true);
}

} // namespace Simulator
