// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/events.h"

#include <utility>

namespace EmporiumCtl {

using Emporium::EventType;

EventListener::EventListener(const Emporium::DaemonConnection& connection,
                             const OnPackage& onPackage, const OnOperation& onOperation)
{
    const std::pair<EventType, const char*> packageEvents[] = {
        {EventType::PackageInstalled, "PackageInstalled"},
        {EventType::PackageUpgraded, "PackageUpgraded"},
        {EventType::PackageRemoved, "PackageRemoved"},
    };
    for (const auto& [type, name] : packageEvents) {
        m_subscriptions.push_back(connection.SubscribeToEvent(
            type, std::function<void(const Emporium::Package&)>(
                      [onPackage, called = name](const Emporium::Package& package) {
                          onPackage(called, package);
                      })));
    }
    m_subscriptions.push_back(connection.SubscribeToEvent(
        EventType::OperationStatusChanged, std::function<void(const Emporium::Operation&)>(
                                               [onOperation](const Emporium::Operation& operation) {
                                                   onOperation("OperationStatusChanged", operation);
                                               })));
}

} // namespace EmporiumCtl
