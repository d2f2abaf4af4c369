// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon/operation_queue.h"

#include "dbus/contract.h"
#include "simulator/bus/bus_error.h"
#include "simulator/bus/message_body.h"
#include "simulator/daemon/package_rules.h"
#include "simulator/glib_ptr.h"

#include <common/operation_status.h>

#include <utility>

namespace Simulator {

namespace Contract = Emporium::Contract;
using Common::ErrorCode;
using Common::OperationStatus;
using Common::OperationType;

namespace {

constexpr std::int32_t firstStatus = 10;

std::int32_t StatusOfStep(unsigned step, unsigned steps)
{
    return firstStatus + static_cast<std::int32_t>(std::uint64_t{90} * step / steps);
}

} // namespace

OperationQueue::OperationQueue(Store& store, Pace pace, EmitSignal emit)
    : m_store(store), m_pace(pace), m_emit(std::move(emit))
{
}

Operation OperationQueue::Install(const std::string& path)
{
    PackageFile file = CheckPackageFile(path, m_store.Lists());
    const bool installed = m_store.FindPackage(file.id) != nullptr;
    const std::string id = file.id;
    return Add(installed ? OperationType::Upgrade : OperationType::Install, id, std::move(file));
}

Operation OperationQueue::Remove(const std::string& id)
{
    if (m_store.FindPackage(id) == nullptr) {
        throw BusError(ErrorCode::PackageNotExist);
    }
    return Add(OperationType::Remove, id, std::nullopt);
}

void OperationQueue::FailNext(const std::string& package, std::int32_t error)
{
    m_errorsToCome[package].push_back(error);
}

void OperationQueue::Clear()
{
    m_timer.Stop();
    m_jobs.clear();
    m_errorsToCome.clear();
}

Operation OperationQueue::Add(OperationType type, const std::string& package,
                              std::optional<PackageFile> file)
{
    const Operation operation = {TextPtr(g_uuid_string_random()).get(), package,
                                 static_cast<std::int32_t>(type), 0, 0};
    m_jobs.push_back({operation, std::move(file)});
    m_store.PutActive(operation);
    Schedule();
    return operation;
}

void OperationQueue::Schedule()
{
    if (!m_jobs.empty() && !m_timer.IsPending()) {
        m_timer.Start(m_pace.stepMilliseconds, [this] { Step(); });
    }
}

void OperationQueue::Step()
{
    Job& job = m_jobs.front();
    if (job.stepsDone < m_pace.steps) {
        job.operation.status = StatusOfStep(job.stepsDone++, m_pace.steps);
        m_store.PutActive(job.operation);
        Announce(job.operation);
    } else {
        Job last = std::move(job);
        m_jobs.pop_front();
        Finish(std::move(last));
    }
    Schedule();
}

void OperationQueue::Finish(Job job)
{
    job.operation.status = static_cast<std::int32_t>(OperationStatus::Succeeded);
    job.operation.error = TakeErrorToCome(job.operation.package);
    try {
        if (job.operation.error == 0) {
            Apply(job);
        }
    } catch (const BusError& error) {
        job.operation.error = static_cast<std::int32_t>(Common::FindError(error.Name()).code);
    }
    if (job.operation.error != 0) {
        job.operation.status = static_cast<std::int32_t>(OperationStatus::Failed);
    }
    m_store.PutCompleted(job.operation);
    Announce(job.operation);
}

// The lists may have changed since the operation was created, so they are checked again.
void OperationQueue::Apply(const Job& job)
{
    if (!job.file) {
        if (!m_store.RemovePackage(job.operation.package)) {
            throw BusError(ErrorCode::PackageNotExist);
        }
        m_emit(Contract::Signal::packageRemoved, Body(ToVariant(job.operation.package)));
        return;
    }
    CheckAgainstInstalled(*job.file, m_store.Lists());
    const Package package = ToPackage(*job.file);
    const bool upgraded = m_store.PutPackage(package);
    m_emit(upgraded ? Contract::Signal::packageUpgraded : Contract::Signal::packageInstalled,
           Body(ToVariant(package)));
}

void OperationQueue::Announce(const Operation& operation)
{
    m_emit(Contract::Signal::operationStatusChanged, Body(ToVariant(operation)));
}

std::int32_t OperationQueue::TakeErrorToCome(const std::string& package)
{
    auto found = m_errorsToCome.find(package);
    if (found == m_errorsToCome.end()) {
        found = m_errorsToCome.find({});
    }
    if (found == m_errorsToCome.end()) {
        return 0;
    }
    const std::int32_t error = found->second.front();
    found->second.pop_front();
    if (found->second.empty()) {
        m_errorsToCome.erase(found);
    }
    return error;
}

} // namespace Simulator
