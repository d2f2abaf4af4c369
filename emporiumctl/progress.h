// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/call_error.h"
#include "emporiumctl/output.h"
#include "emporiumctl/task.h"

#include <memory>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Shows the progress and the outcomes of tasks.
class Progress
{
public:
    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    virtual ~Progress() = default;

    virtual void Created(const Task& task) = 0;
    virtual void Refused(const Task& task, const CallError& error) = 0;
    /// The operation has a new status, which is not its end.
    virtual void Changed(const Task& task) = 0;
    virtual void Ended(const Task& task) = 0;
    virtual void NotKnown(const Task& task, const std::string& reason) = 0;
    /// The waiting ends before the operation.
    virtual void Continues(const Task& task) = 0;
    /// The program ends before it has asked the daemon.
    virtual void NotRequested(const Task& task) = 0;
    virtual void DaemonVanished() = 0;
    virtual void DaemonAppeared() = 0;

    /// Called after everything that happens, and when the window changes its size.
    virtual void Refresh(const std::vector<Task>& tasks) { static_cast<void>(tasks); }
    /// Called last, once.
    virtual void Close() {}
};

/// JSON, lines, or a display that is redrawn; whichever fits the output.
std::unique_ptr<Progress> MakeProgress(Output& out);

/// For operations that are not waited for: their UUIDs.
std::unique_ptr<Progress> MakeDetachedProgress(Output& out);

} // namespace EmporiumCtl
