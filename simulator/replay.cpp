// SPDX-License-Identifier: BSD-3-Clause
#include "replay.h"

#include <algorithm>

namespace Simulator {

Replay::Replay(std::vector<RecordedEvent> events, double speed, Store& store, EmitSignal emit)
    : events_(std::move(events)), speed_(speed), store_(store), emit_(std::move(emit))
{
}

void Replay::Start()
{
    if (startMicroseconds_ != 0)
        return;
    startMicroseconds_ = g_get_monotonic_time();
    ScheduleNext();
}

void Replay::ScheduleNext()
{
    if (next_ == events_.size())
        return;
    const double due = events_[next_].offsetMilliseconds / speed_;
    const double now = static_cast<double>(g_get_monotonic_time() - startMicroseconds_) / 1000.0;
    const double wait = std::clamp(due - now, 0.0, double{G_MAXINT32});
    timer_.Start(static_cast<guint>(wait), [this] {
        Play(events_[next_++]);
        ScheduleNext();
    });
}

void Replay::Play(const RecordedEvent& event)
{
    std::visit([this](const auto& content) { Play(content); }, event.content);
}

void Replay::Play(const Operation& operation)
{
    if (operation.status == statusDone || operation.status == statusFailed)
        store_.PutCompleted(operation);
    else
        store_.PutActive(operation);
    emit_("OperationStatusChanged", Body(ToVariant(operation)));
}

void Replay::Play(const PackageArrival& arrival)
{
    store_.PutPackage(arrival.package);
    emit_(arrival.upgrade ? "PackageUpgraded" : "PackageInstalled",
          Body(ToVariant(arrival.package)));
}

void Replay::Play(const PackageRemoval& removal)
{
    store_.RemovePackage(removal.id);
    emit_("PackageRemoved", Body(Variant(g_variant_new_string(removal.id.c_str()))));
}

} // namespace Simulator
