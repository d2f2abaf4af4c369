// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/daemon/operation_queue.h"
#include "simulator/daemon/store.h"
#include "simulator/files/recording.h"
#include "simulator/timer.h"

namespace Simulator {

/// Replays the events of a recording: sends each signal and changes the lists accordingly.
class Replay
{
public:
    /// @param present receives whether the daemon is on the bus
    Replay(std::vector<RecordedEvent> events, double speed, Store& store, EmitSignal emit,
           std::function<void(bool)> present);

    /// Starts the clock; later calls do nothing.
    void Start();

private:
    void ScheduleNext();
    void Play(const RecordedEvent& event);
    void Play(const Operation& operation);
    void Play(const PackageArrival& arrival);
    void Play(const PackageRemoval& removal);
    void Play(const DaemonLoss& loss);
    void Play(const DaemonReturn& daemon);

    std::vector<RecordedEvent> m_events;
    double m_speed;
    Store& m_store;
    EmitSignal m_emit;
    std::function<void(bool)> m_present;
    std::size_t m_next = 0;
    gint64 m_startMicroseconds = 0;
    Timer m_timer;
};

} // namespace Simulator
