// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "operations.h"
#include "recording.h"
#include "store.h"

namespace Simulator {

/// Plays the events of a recording back, each of them changing the lists as it did then.
class Replay
{
public:
    Replay(std::vector<RecordedEvent> events, double speed, Store& store, EmitSignal emit);

    /// Starts the clock; later calls change nothing.
    void Start();

private:
    void ScheduleNext();
    void Play(const RecordedEvent& event);
    void Play(const Operation& operation);
    void Play(const PackageArrival& arrival);
    void Play(const PackageRemoval& removal);

    std::vector<RecordedEvent> m_events;
    double m_speed;
    Store& m_store;
    EmitSignal m_emit;
    std::size_t m_next = 0;
    gint64 m_startMicroseconds = 0;
    Timer m_timer;
};

} // namespace Simulator
