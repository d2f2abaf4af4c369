// SPDX-License-Identifier: BSD-3-Clause
#include "operations.h"

#include "failures.h"

#include <utility>

namespace Simulator {

using Common::ErrorCode;

namespace {

constexpr std::int32_t firstStatus = 10;

std::int32_t StatusOfStep(unsigned step, unsigned steps)
{
    return firstStatus + static_cast<std::int32_t>(std::uint64_t{90} * step / steps);
}

} // namespace

OperationQueue::OperationQueue(Store& store, Pace pace, EmitSignal emit)
    : store_(store), pace_(pace), emit_(std::move(emit))
{
}

Operation OperationQueue::Install(const std::string& path)
{
    PackageFile file = CheckPackageFile(path, store_.Lists());
    const bool installed = store_.FindPackage(file.id) != nullptr;
    const std::string id = file.id;
    return Add(installed ? OperationType::Upgrade : OperationType::Install, id, std::move(file));
}

Operation OperationQueue::Remove(const std::string& id)
{
    if (store_.FindPackage(id) == nullptr)
        throw BusError(ErrorCode::PackageNotExist);
    return Add(OperationType::Remove, id, std::nullopt);
}

void OperationQueue::FailNext(const std::string& package, std::int32_t error)
{
    failures_[package] = error;
}

void OperationQueue::Clear()
{
    timer_.Stop();
    jobs_.clear();
    failures_.clear();
}

Operation OperationQueue::Add(OperationType type, const std::string& package,
                              std::optional<PackageFile> file)
{
    const Operation operation = {NewUuid(), package, static_cast<std::int32_t>(type), 0, 0};
    jobs_.push_back({operation, std::move(file)});
    store_.PutActive(operation);
    Schedule();
    return operation;
}

void OperationQueue::Schedule()
{
    if (!jobs_.empty() && !timer_.IsPending())
        timer_.Start(pace_.stepMilliseconds, [this] { Step(); });
}

void OperationQueue::Step()
{
    Job& job = jobs_.front();
    if (job.stepsDone < pace_.steps) {
        job.operation.status = StatusOfStep(job.stepsDone++, pace_.steps);
        store_.PutActive(job.operation);
        Announce(job.operation);
    } else {
        Job last = std::move(job);
        jobs_.pop_front();
        Finish(std::move(last));
    }
    Schedule();
}

void OperationQueue::Finish(Job job)
{
    job.operation.status = statusDone;
    job.operation.error = TakeFailure(job.operation.package);
    try {
        if (job.operation.error == 0)
            Apply(job);
    } catch (const BusError& error) {
        job.operation.error = static_cast<std::int32_t>(Common::FindError(error.Name()).code);
    }
    if (job.operation.error != 0)
        job.operation.status = statusFailed;
    store_.PutCompleted(job.operation);
    Announce(job.operation);
}

// The lists may have changed since the operation was created, so they are checked again.
void OperationQueue::Apply(const Job& job)
{
    if (!job.file) {
        if (!store_.RemovePackage(job.operation.package))
            throw BusError(ErrorCode::PackageNotExist);
        const Variant id(g_variant_new_string(job.operation.package.c_str()));
        emit_("PackageRemoved", Body(id));
        return;
    }
    CheckAgainstInstalled(*job.file, store_.Lists());
    const Package package = ToPackage(*job.file);
    const bool upgraded = store_.PutPackage(package);
    emit_(upgraded ? "PackageUpgraded" : "PackageInstalled", Body(ToVariant(package)));
}

void OperationQueue::Announce(const Operation& operation)
{
    emit_("OperationStatusChanged", Body(ToVariant(operation)));
}

std::int32_t OperationQueue::TakeFailure(const std::string& package)
{
    auto found = failures_.find(package);
    if (found == failures_.end())
        found = failures_.find({});
    return found != failures_.end() ? failures_.extract(found).mapped() : 0;
}

} // namespace Simulator
