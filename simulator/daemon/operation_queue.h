// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"
#include "simulator/daemon/store.h"
#include "simulator/files/package_file.h"
#include "simulator/timer.h"

#include <common/operation_type.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Simulator {

/// The pace of an operation: the number of its statuses, and the time before each.
struct Pace
{
    unsigned steps = 3;
    unsigned stepMilliseconds = 200;
};

using EmitSignal = std::function<void(const std::string& name, const Variant& body)>;

/// Runs the operations of the daemon one after another.
class OperationQueue
{
public:
    OperationQueue(Store& store, Pace pace, EmitSignal emit);

    /// @throws BusError when the package file is refused
    Operation Install(const std::string& path);
    /// @throws BusError when there is no such package
    Operation Remove(const std::string& id);

    /// Makes the next operation on the package (empty: on any) fail at its end, after those that earlier
    /// calls make fail.
    void FailNext(const std::string& package, std::int32_t error);
    void Clear();

private:
    struct Job
    {
        Operation operation;
        std::optional<PackageFile> file;
        unsigned stepsDone = 0;
    };

    Operation Add(Common::OperationType type, const std::string& package,
                  std::optional<PackageFile> file);
    void Schedule();
    void Step();
    void Finish(Job job);
    void Apply(const Job& job);
    void Announce(const Operation& operation);
    std::int32_t TakeErrorToCome(const std::string& package);

    Store& m_store;
    Pace m_pace;
    EmitSignal m_emit;
    std::deque<Job> m_jobs;
    std::map<std::string, std::deque<std::int32_t>> m_errorsToCome;
    Timer m_timer;
};

} // namespace Simulator
