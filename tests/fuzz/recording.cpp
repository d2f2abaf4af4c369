// SPDX-License-Identifier: BSD-3-Clause
//
// A recording of any content. Everything that is read can be sent.
#include "simulator/files/recording.h"

#include "fuzz/simulator_file.h"

#include <variant>

namespace {

void CheckLists(const Simulator::Catalogue& lists)
{
    for (const Simulator::Package& package : lists.packages) {
        Fuzz::RequireSendableRecord(package);
    }
    for (const auto* list : {&lists.active, &lists.completed}) {
        for (const Simulator::Operation& operation : *list) {
            Fuzz::RequireSendableRecord(operation);
        }
    }
}

void CheckEvent(const Simulator::RecordedEvent& event)
{
    Fuzz::Require(event.offsetMilliseconds >= 0 && event.offsetMilliseconds < 1e13,
                  "an event has a time");
    if (const auto* operation = std::get_if<Simulator::Operation>(&event.content)) {
        Fuzz::RequireSendableRecord(*operation);
    } else if (const auto* arrival = std::get_if<Simulator::PackageArrival>(&event.content)) {
        Fuzz::RequireSendableRecord(arrival->package);
    } else if (const auto* removal = std::get_if<Simulator::PackageRemoval>(&event.content)) {
        Fuzz::RequireSendableRecord(removal->id);
    } else if (const auto* back = std::get_if<Simulator::DaemonReturn>(&event.content)) {
        CheckLists(back->lists);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto recording = Fuzz::ReadUserFile(data, size, Simulator::ReadRecording);
    if (!recording) {
        return 0;
    }
    Fuzz::RequireSendableRecord(recording->snapshot.architecture);
    Fuzz::RequireSendableRecord(recording->snapshot.version);
    CheckLists(recording->snapshot);
    for (const Simulator::RecordedEvent& event : recording->events) {
        CheckEvent(event);
    }
    return 0;
}
