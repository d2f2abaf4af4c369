// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <functional>
#include <vector>

namespace EmporiumCtl {

/// Receives all events of all types until destroyed.
class EventListener
{
public:
    using OnPackage = std::function<void(const char* name, const Emporium::Package&)>;
    using OnOperation = std::function<void(const char* name, const Emporium::Operation&)>;

    EventListener(const Emporium::DaemonConnection& connection, const OnPackage& onPackage,
                  const OnOperation& onOperation);

private:
    std::vector<Emporium::EventSubscription> m_subscriptions;
};

} // namespace EmporiumCtl
