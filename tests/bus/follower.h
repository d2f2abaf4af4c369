// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// Notes the events of a connection.
class Follower
{
public:
    explicit Follower(const Emporium::DaemonConnection& connection)
    {
        const std::pair<Emporium::EventType, std::string> types[] = {
            {Emporium::EventType::PackageInstalled, "installed "},
            {Emporium::EventType::PackageUpgraded, "upgraded "},
            {Emporium::EventType::PackageRemoved, "removed "},
        };
        for (const auto& [type, name] : types) {
            m_subscriptions.push_back(connection.SubscribeToEvent(
                type,
                Emporium::PackageCallback([this, text = name](const Emporium::Package& package) {
                    events.push_back(text + package.GetID());
                })));
        }
        m_subscriptions.push_back(connection.SubscribeToEvent(
            Emporium::EventType::OperationStatusChanged,
            Emporium::OperationCallback([this](const Emporium::Operation& operation) {
                events.push_back("operation " + operation.GetUUID());
            })));
    }

    bool Has(const std::string& event) const
    {
        return std::find(events.begin(), events.end(), event) != events.end();
    }

    std::vector<std::string> events;

private:
    std::vector<Emporium::EventSubscription> m_subscriptions;
};

} // namespace TestSupport
