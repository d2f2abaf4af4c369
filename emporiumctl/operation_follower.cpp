// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/operation_follower.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

namespace EmporiumCtl {

using Emporium::DaemonState;
using Emporium::Operation;

namespace {

/// How long the return of a vanished daemon is waited for without a time-out.
constexpr guint returnLimitSeconds = 30;

/// The daemon has another working directory.
std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) {
        throw std::invalid_argument("no working directory: " + error.message());
    }
    return absolute.string();
}

Emporium::OperationRequest MakeRequest(const Task& task, bool remote)
{
    if (task.target.empty()) {
        throw std::invalid_argument("an empty argument");
    }
    if (const auto error = CheckArgument(task.target)) {
        throw std::invalid_argument(error->message);
    }
    Emporium::OperationRequest::Builder builder;
    builder.SetOperationType(task.type);
    if (task.type == Common::OperationType::Remove) {
        builder.SetPackageID(task.target);
    } else if (remote && task.target.front() != '/') {
        throw std::invalid_argument("on another host, the path must be absolute");
    } else {
        builder.SetPackagePath(AbsolutePath(task.target));
    }
    return builder.Build();
}

} // namespace

OperationFollower::OperationFollower(Session& session, Output& out, Progress& progress)
    : m_session(session), m_out(out), m_progress(progress),
      m_subscription(session.Connection().SubscribeToEvent(
          Emporium::EventType::OperationStatusChanged,
          [this](const Operation& operation) { OnStatus(operation); }))
{
}

OperationFollower::~OperationFollower()
{
    ForgetReturnLimit();
}

void OperationFollower::Create(Common::OperationType type, const std::vector<std::string>& targets,
                               bool remote)
{
    for (const std::string& target : targets) {
        Task& task = m_tasks.emplace_back();
        task.type = type;
        task.target = target;
    }
    m_session.Settle();
    for (Task& task : m_tasks) {
        if (m_session.Interrupted()) {
            return;
        }
        try {
            Request(task, MakeRequest(task, remote));
        } catch (const std::exception& error) {
            Refuse(task, BadArgument(error.what()));
        }
        m_progress.Refresh(m_tasks);
    }
}

void OperationFollower::Request(Task& task, const Emporium::OperationRequest& request)
{
    task.state = Task::State::Requested;
    task.began = Task::Clock::now();
    const auto uuid = m_session.Call(
        [this] { Finish(); }, [&] { return m_session.Connection().CreateOperation(request); });
    if (uuid) {
        Follow(task, uuid.Get());
        return;
    }
    const CallError error = ReadCallError(uuid.GetError());
    if (error.outcome == CallOutcome::NotKnown) {
        Lose(task);
    } else {
        Refuse(task, error);
    }
}

void OperationFollower::Refuse(Task& task, const CallError& error)
{
    task.state = Task::State::Over;
    Worsen(StatusOf(error.outcome));
    m_progress.Refused(task, error);
}

void OperationFollower::Lose(Task& task)
{
    task.state = Task::State::Lost;
    m_lookUpDue = true;
    for (const auto& operations : {m_session.Connection().GetActiveOperations(),
                                   m_session.Connection().GetCompletedOperations()}) {
        for (const Operation& operation : operations) {
            m_knownBefore.insert(operation.GetUUID());
        }
    }
}

void OperationFollower::Follow(Task& task, const std::string& uuid)
{
    if (uuid.empty()) {
        SetNotKnown(task, "the daemon's reply names no operation");
        return;
    }
    task.uuid = uuid;
    task.state = Task::State::Active;
    m_progress.Created(task);
    // The reply may already say that the operation has ended.
    const auto operation = m_session.Connection().GetActiveOperation(uuid);
    if (operation && IsFinished(operation->GetStatus())) {
        Update(task, operation.Get());
    }
}

void OperationFollower::Attach(const std::vector<std::string>& uuids)
{
    const Snapshot snapshot(m_session.Connection());
    for (const std::string& uuid : uuids) {
        Task& task = m_tasks.emplace_back();
        task.target = uuid;
        task.uuid = uuid;
        task.state = Task::State::Active;
        Continue(task, snapshot.Find(uuid));
    }
}

void OperationFollower::Update(Task& task, const Operation& operation)
{
    task.last = operation;
    task.described = true;
    task.type = operation.GetType();
    if (!IsFinished(operation.GetStatus())) {
        m_progress.Changed(task);
        return;
    }
    task.state = Task::State::Over;
    task.ended = Task::Clock::now();
    Worsen(task.Failed() ? ExitStatus::Failed : ExitStatus::Done);
    m_progress.Ended(task);
}

void OperationFollower::SetNotKnown(Task& task, const std::string& reason)
{
    task.state = Task::State::Over;
    Worsen(ExitStatus::NotKnown);
    m_progress.NotKnown(task, reason);
}

/// A lost bus counts most, then what is not known, then what has failed.
void OperationFollower::Worsen(ExitStatus status)
{
    const auto weight = [](ExitStatus of) {
        return of == ExitStatus::NoDaemon ? 10 : static_cast<int>(of);
    };
    m_status = std::max(m_status, status,
                        [&](ExitStatus a, ExitStatus b) { return weight(a) < weight(b); });
}

ExitStatus OperationFollower::Wait()
{
    while (AwaitsAny() && m_out.Good() && !m_session.Interrupted()) {
        while (const auto state = m_session.NextChange()) {
            OnDaemonState(*state);
        }
        if (m_lookUpDue && !m_daemonAbsent) {
            LookUp();
        }
        if (m_returnLimitReached) {
            GiveUp("the daemon has not returned within " + std::to_string(returnLimitSeconds) +
                   " s");
        }
        m_progress.Refresh(m_tasks);
        if (AwaitsAny()) {
            m_session.Iterate();
        }
    }
    return Finish();
}

ExitStatus OperationFollower::Leave()
{
    if (m_lookUpDue && !m_session.Interrupted()) {
        m_session.Settle();
        LookUp();
    }
    for (Task& task : m_tasks) {
        if (task.state == Task::State::Lost) {
            SetNotKnown(task, "the daemon has not replied");
        }
    }
    return Finish();
}

ExitStatus OperationFollower::Finish()
{
    if (m_session.Interrupted()) {
        ReportInterrupted();
    }
    m_progress.Close();
    return m_status;
}

void OperationFollower::OnStatus(const Operation& operation)
{
    for (Task& task : m_tasks) {
        if (task.state == Task::State::Active && task.uuid == operation.GetUUID()) {
            Update(task, operation);
        }
    }
}

void OperationFollower::OnDaemonState(DaemonState state)
{
    switch (state) {
    case DaemonState::Present:
        OnPresent();
        break;
    case DaemonState::Absent:
        OnAbsent();
        break;
    case DaemonState::Disconnected:
        GiveUp(LostBus().error.message);
        Worsen(ExitStatus::NoDaemon);
        break;
    }
}

void OperationFollower::OnAbsent()
{
    if (m_daemonAbsent) {
        return;
    }
    m_daemonAbsent = true;
    m_progress.DaemonVanished();
    if (!m_session.TheInterruption().HasTimeout()) {
        m_returnLimit = g_timeout_add_seconds_full(
            G_PRIORITY_DEFAULT, returnLimitSeconds,
            [](gpointer reached) -> gboolean {
                *static_cast<bool*>(reached) = true;
                return G_SOURCE_CONTINUE;
            },
            &m_returnLimitReached, nullptr);
    }
}

void OperationFollower::OnPresent()
{
    if (m_daemonAbsent) {
        m_daemonAbsent = false;
        m_progress.DaemonAppeared();
        ForgetReturnLimit();
    }
    m_lookUpDue = true;
}

void OperationFollower::ForgetReturnLimit()
{
    if (m_returnLimit != 0) {
        g_source_remove(m_returnLimit);
        m_returnLimit = 0;
    }
    m_returnLimitReached = false;
}

void OperationFollower::LookUp()
{
    m_lookUpDue = false;
    const auto loaded = m_session.Call([this] { Finish(); }, [this] { return m_session.Reload(); });
    if (const auto* failure = std::get_if<Failure>(&loaded)) {
        if (failure->status == ExitStatus::NoDaemon) {
            OnAbsent(); // or the bus is lost, which the main loop reports next
        } else {
            GiveUp(failure->error.message);
        }
        return;
    }
    const auto& snapshot = std::get<Snapshot>(loaded);
    // Found for all tasks before any of them changes, because lost calls may be rivals for an operation.
    std::vector<std::pair<Task*, const Operation*>> found;
    for (Task& task : m_tasks) {
        if (task.Awaited()) {
            const bool lost = task.state == Task::State::Lost;
            found.emplace_back(&task, lost ? FindLost(task, snapshot) : snapshot.Find(task.uuid));
        }
    }
    for (const auto& [task, operation] : found) {
        Continue(*task, operation);
    }
}

/// Continues with what a snapshot has of the operation; with none if it does not have it.
void OperationFollower::Continue(Task& task, const Operation* operation)
{
    const bool lost = task.state == Task::State::Lost;
    if (operation == nullptr) {
        SetNotKnown(task,
                    lost ? "the daemon has not replied" : "the daemon does not know the operation");
        return;
    }
    if (lost) {
        task.uuid = operation->GetUUID();
        task.state = Task::State::Active;
        m_progress.Created(task);
    }
    Update(task, *operation);
}

/// The operation that the lost call has created: the only new one of the kind. The daemon does not say
/// which file an installation is from, so with several of them nothing is known.
const Operation* OperationFollower::FindLost(const Task& task, const Snapshot& snapshot) const
{
    const bool removal = task.type == Common::OperationType::Remove;
    const auto isCandidate = [&](const Operation& operation) {
        const bool sameKind = (operation.GetType() == Common::OperationType::Remove) == removal &&
                              (!removal || operation.GetPackageID() == task.target);
        const auto has = [&](const Task& other) { return other.uuid == operation.GetUUID(); };
        return sameKind && m_knownBefore.count(operation.GetUUID()) == 0 &&
               std::none_of(m_tasks.begin(), m_tasks.end(), has);
    };
    const auto isRival = [&](const Task& other) {
        return &other != &task && other.state == Task::State::Lost && other.type == task.type &&
               (!removal || other.target == task.target);
    };
    const Operation* found = nullptr;
    for (const auto* operations : {&snapshot.active, &snapshot.completed}) {
        for (const Operation& operation : *operations) {
            if (isCandidate(operation)) {
                if (found != nullptr && found->GetUUID() != operation.GetUUID()) {
                    return nullptr;
                }
                found = found == nullptr ? &operation : found;
            }
        }
    }
    return std::any_of(m_tasks.begin(), m_tasks.end(), isRival) ? nullptr : found;
}

bool OperationFollower::AwaitsAny() const
{
    return std::any_of(m_tasks.begin(), m_tasks.end(),
                       [](const Task& task) { return task.Awaited(); });
}

void OperationFollower::GiveUp(const std::string& reason)
{
    for (Task& task : m_tasks) {
        if (task.Awaited()) {
            SetNotKnown(task, reason);
        }
    }
}

void OperationFollower::ReportInterrupted()
{
    const std::string reason = m_session.TheInterruption().Reason();
    for (Task& task : m_tasks) {
        switch (task.state) {
        case Task::State::NotRequested:
            m_progress.NotRequested(task);
            break;
        case Task::State::Active:
            if (!m_daemonAbsent) {
                m_progress.Continues(task);
                break;
            }
            [[fallthrough]];
        case Task::State::Requested:
        case Task::State::Lost:
            m_progress.NotKnown(task, reason);
            break;
        case Task::State::Over:
            break;
        }
        task.state = Task::State::Over;
    }
    Worsen(ExitStatus::NotKnown);
}

} // namespace EmporiumCtl
