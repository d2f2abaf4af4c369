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

    std::vector<RecordedEvent> events_;
    double speed_;
    Store& store_;
    EmitSignal emit_;
    std::size_t next_ = 0;
    gint64 startMicroseconds_ = 0;
    Timer timer_;
};

} // namespace Simulator
