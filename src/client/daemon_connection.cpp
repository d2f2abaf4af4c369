// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/daemon_connection.h>

#include "client/daemon_connection_private.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Emporium {
namespace {

/// The private object of a valid connection. `use` completes the message of the exception.
DaemonConnectionPrivate& Valid(const std::shared_ptr<DaemonConnectionPrivate>& connection,
                               const char* use)
{
    if (!connection || !connection->proxy) {
        throw std::logic_error(std::string("Attempt to use the DaemonConnection::") + use +
                               " when the daemon connection is not valid");
    }
    return *connection;
}

const char* DisplayName(EventType type)
{
    switch (type) {
    case EventType::PackageInstalled:
        return "EventType::PackageInstalled";
    case EventType::PackageUpgraded:
        return "EventType::PackageUpgraded";
    case EventType::PackageRemoved:
        return "EventType::PackageRemoved";
    case EventType::OperationStatusChanged:
        return "EventType::OperationStatusChanged";
    }
    return "EventType::(Unknown)";
}

void CheckForm(EventType type, const EventCallback& callback)
{
    const bool wantsOperation = type == EventType::OperationStatusChanged;
    if (std::holds_alternative<OperationCallback>(callback) == wantsOperation) {
        return;
    }
    throw std::logic_error(std::string("Attempt to subscribe to the ") + DisplayName(type) +
                           " event using a function with a signature other than " +
                           (wantsOperation ? "std::function<void(const Operation &)>"
                                           : "std::function<void(const Package &)>"));
}

} // namespace

DaemonConnection::DaemonConnection() : m_private(std::make_shared<DaemonConnectionPrivate>()) {}

DaemonConnection::DaemonConnection(std::shared_ptr<DaemonConnectionPrivate> shared)
    : m_private(std::move(shared))
{
}

DaemonConnection::DaemonConnection(const DaemonConnection&) = default;
DaemonConnection::DaemonConnection(DaemonConnection&&) noexcept = default;
DaemonConnection& DaemonConnection::operator=(const DaemonConnection&) = default;
DaemonConnection& DaemonConnection::operator=(DaemonConnection&&) noexcept = default;
DaemonConnection::~DaemonConnection() = default;

DaemonConnection::operator bool() const
{
    return m_private != nullptr && m_private->proxy != nullptr;
}

const std::string& DaemonConnection::GetArchitecture() const
{
    return Valid(m_private, "GetArchitecture() method").architecture;
}

const std::string& DaemonConnection::GetVeyraVersion() const
{
    return Valid(m_private, "GetVeyraVersion() method").veyraVersion;
}

std::vector<Package> DaemonConnection::GetPackageList() const
{
    return Valid(m_private, "GetPackageList() method").packages.ToVector();
}

std::vector<Package> DaemonConnection::GetPackageList(const PackageFilter& filter) const
{
    const PackageList& all =
        Valid(m_private, "GetPackageList(const PackageFilter &) method").packages;
    std::vector<Package> packages;
    std::copy_if(all.begin(), all.end(), std::back_inserter(packages), std::cref(filter));
    return packages;
}

Result<Package> DaemonConnection::GetPackage(const std::string& id) const
{
    const Package* const package = Valid(m_private, "GetPackage() method").packages.Find(id);
    if (package == nullptr) {
        return ErrorResult("No package with id " + id + " found");
    }
    return SuccessResult<Package>(*package);
}

std::vector<Operation> DaemonConnection::GetActiveOperations() const
{
    return Valid(m_private, "GetActiveOperations() method").activeOperations.ToVector();
}

Result<Operation> DaemonConnection::GetActiveOperation(const std::string& uuid) const
{
    const Operation* const operation =
        Valid(m_private, "GetActiveOperation() method").activeOperations.Find(uuid);
    if (operation == nullptr) {
        return ErrorResult("No operation with uuid " + uuid + " found");
    }
    return SuccessResult<Operation>(*operation);
}

std::vector<Operation> DaemonConnection::GetCompletedOperations() const
{
    return Valid(m_private, "GetCompletedOperations() method").completedOperations;
}

Result<std::string> DaemonConnection::CreateOperation(const OperationRequest& request) const
{
    // The message keeps the method's former name.
    DaemonConnectionPrivate& connection = Valid(m_private, "QueueOperation() method");
    const bool isRemoval = request.GetOperationType() == Common::OperationType::Remove;
    const Result<Operation> operation = isRemoval
                                            ? connection.proxy->Remove(request.GetPackageID())
                                            : connection.proxy->Install(request.GetPackagePath());
    if (!operation) {
        return ErrorResult(operation.GetError());
    }
    // Listed before the daemon's first signal about it arrives.
    connection.activeOperations.Append(operation.Get());
    return SuccessResult<std::string>(operation->GetUUID());
}

Result<void> DaemonConnection::Start(const std::string& appId) const
{
    return Valid(m_private, "Start() method").proxy->Start(appId);
}

Result<void> DaemonConnection::Restart(const std::string& appId) const
{
    return Valid(m_private, "Restart() method").proxy->Restart(appId);
}

EventSubscription DaemonConnection::SubscribeToEvent(EventType type,
                                                     const EventCallback& callback) const
{
    DaemonConnectionPrivate& connection = Valid(m_private, "SubscribeToEvent()");
    CheckForm(type, callback);
    const std::uint64_t id = connection.subscriptions.Add(type, callback);
    try {
        return EventSubscription(id);
    } catch (...) {
        connection.subscriptions.Remove(id);
        throw;
    }
}

void DaemonConnection::UnsubscribeFromEvent(const EventSubscription& subscription)
{
    if (m_private) {
        m_private->subscriptions.Remove(subscription.GetID());
    }
}

} // namespace Emporium
