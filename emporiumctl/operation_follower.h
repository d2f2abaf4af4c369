// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/exit_status.h"
#include "emporiumctl/progress.h"
#include "emporiumctl/session.h"
#include "emporiumctl/task.h"

#include <emporium/emporium.h>

#include <glib.h>

#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

namespace EmporiumCtl {

/// Creates operations and waits for their ends. Subscribes on construction, before operations are
/// created: an operation may end before the reply that creates it arrives.
///
/// When the daemon vanishes, waits for its return and looks the operations up in its new snapshot.
class OperationFollower
{
public:
    OperationFollower(Session& session, Output& out, Progress& progress);
    OperationFollower(const OperationFollower&) = delete;
    OperationFollower& operator=(const OperationFollower&) = delete;
    ~OperationFollower();

    /// Asks the daemon for an operation for each target. One that is refused does not keep the others
    /// from being worked on.
    void Create(Common::OperationType type, const std::vector<std::string>& targets, bool remote);
    /// Takes operations that exist.
    void Attach(const std::vector<std::string>& uuids);

    ExitStatus Wait();
    /// Does not wait, except for the outcome of a call without a reply.
    ExitStatus Leave();

private:
    void Request(Task& task, const Emporium::OperationRequest& request);
    void Refuse(Task& task, const CallError& error);
    void Lose(Task& task);
    void Follow(Task& task, const std::string& uuid);
    void Update(Task& task, const Emporium::Operation& operation);
    void SetNotKnown(Task& task, const std::string& reason);
    void Worsen(ExitStatus status);

    void OnStatus(const Emporium::Operation& operation);
    void OnDaemonState(Emporium::DaemonState state);
    void OnAbsent();
    void OnPresent();
    void ForgetReturnLimit();

    /// Looks all awaited operations up in the daemon's present state.
    void LookUp();
    void Continue(Task& task, const Emporium::Operation* operation);
    const Emporium::Operation* FindLost(const Task& task, const Snapshot& snapshot) const;

    bool AwaitsAny() const;
    void GiveUp(const std::string& reason);
    /// Called on the thread of the interruption too, while a call blocks the other one.
    ExitStatus Finish();
    void ReportInterrupted();

    Session& m_session;
    Output& m_out;
    Progress& m_progress;
    std::vector<Task> m_tasks;
    std::unordered_set<std::string> m_knownBefore; ///< UUIDs that are not of a lost call.
    ExitStatus m_status = ExitStatus::Done;
    bool m_daemonAbsent = false;
    bool m_lookUpDue = false;
    bool m_returnLimitReached = false;
    guint m_returnLimit = 0;
    Emporium::EventSubscription m_subscription;
};

} // namespace EmporiumCtl
