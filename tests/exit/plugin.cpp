// SPDX-License-Identifier: BSD-3-Clause
//
// An object that a program loads and unloads, and that alone uses the library.

#include <emporium/emporium.h>

namespace {

using namespace Emporium;

EventSubscription subscription;
int events = 0;

} // namespace

/// The number of packages. Subscribes until the object is unloaded.
extern "C" __attribute__((visibility("default"))) int UseTheLibrary()
{
    const DaemonConnection connection = GetDaemonConnection();
    subscription = connection.SubscribeToEvent(EventType::PackageRemoved,
                                               PackageCallback([](const Package&) { ++events; }));
    return static_cast<int>(connection.GetPackageList().size());
}

extern "C" __attribute__((visibility("default"))) int Events()
{
    return events;
}
