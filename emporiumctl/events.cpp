// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/events.h"

#include "emporiumctl/json.h"

#include <utility>

namespace EmporiumCtl {

using Emporium::DaemonState;
using Emporium::EventType;
using Emporium::Operation;
using Emporium::Package;

namespace {

void Add(Json& json, std::monostate /*content*/)
{
    static_cast<void>(json);
}

void Add(Json& json, const Package& package)
{
    json["package"] = ToJson(package);
}

void Add(Json& json, const Operation& operation)
{
    json["operation"] = ToJson(operation);
}

void Add(Json& json, const Event::Appeared& appeared)
{
    if (const auto* snapshot = std::get_if<Snapshot>(&appeared)) {
        json["snapshot"] = ToJson(*snapshot);
    } else {
        json["error"] = ToJson(std::get<Failure>(appeared).error);
    }
}

} // namespace

const std::string* Event::PackageID() const
{
    if (const auto* package = std::get_if<Package>(&content)) {
        return &package->GetID();
    }
    const auto* operation = std::get_if<Operation>(&content);
    return operation != nullptr ? &operation->GetPackageID() : nullptr;
}

Json ToJson(const Event& event)
{
    Json json = {{"event", event.name}};
    std::visit([&](const auto& content) { Add(json, content); }, event.content);
    return json;
}

EventStream::EventStream(Session& session, OnEvent onEvent)
    : m_session(session), m_onEvent(std::move(onEvent))
{
    const std::pair<EventType, const char*> packageEvents[] = {
        {EventType::PackageInstalled, "PackageInstalled"},
        {EventType::PackageUpgraded, "PackageUpgraded"},
        {EventType::PackageRemoved, "PackageRemoved"},
    };
    const Emporium::DaemonConnection& connection = session.Connection();
    for (const auto& [type, name] : packageEvents) {
        m_subscriptions.push_back(connection.SubscribeToEvent(
            type, [this, called = name](const Package& package) { m_onEvent({called, package}); }));
    }
    m_subscriptions.push_back(connection.SubscribeToEvent(
        EventType::OperationStatusChanged,
        [this](const Operation& operation) { m_onEvent({"OperationStatusChanged", operation}); }));
}

std::optional<Failure> EventStream::Run(const std::function<bool()>& good)
{
    for (;;) {
        // There may be changes from before: events are dispatched while a command prepares itself.
        while (const auto state = m_session.NextChange()) {
            OnDaemonState(*state);
        }
        if (!good() || m_busLost || m_session.Interrupted()) {
            break;
        }
        m_session.Iterate();
    }
    return m_busLost ? std::optional(LostBus()) : std::nullopt;
}

void EventStream::OnDaemonState(DaemonState state)
{
    if (state == DaemonState::Disconnected) {
        m_busLost = true;
    } else if (state == DaemonState::Absent) {
        if (!std::exchange(m_daemonAbsent, true)) {
            m_onEvent({"DaemonVanished", {}});
        }
    } else if (m_daemonAbsent) {
        auto loaded = m_session.Call([this] { Complain(m_session.TheInterruption().Reason()); },
                                     [this] { return m_session.Reload(); });
        const auto* failure = std::get_if<Failure>(&loaded);
        // If it has vanished again, the next change reports that.
        if (failure == nullptr || failure->status != ExitStatus::NoDaemon) {
            m_daemonAbsent = false;
            m_onEvent({"DaemonAppeared", std::move(loaded)});
        }
    }
}

} // namespace EmporiumCtl
