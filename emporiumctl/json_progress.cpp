// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/json_progress.h"

#include "emporiumctl/failure.h"
#include "emporiumctl/json.h"

namespace EmporiumCtl {

void JsonProgress::Created(const Task& task)
{
    Print({{"event", "Created"}, {"target", task.target}, {"uuid", task.uuid}});
}

void JsonProgress::Refused(const Task& task, const CallError& error)
{
    Json event = {{"event", "Refused"}, {"target", task.target}};
    event.update(ToJson(error));
    Print(event);
    Complain(About(task.target, error));
}

void JsonProgress::Changed(const Task& task)
{
    if (!m_out.Quiet()) {
        Print(EventToJson("OperationStatusChanged", task.last));
    }
}

void JsonProgress::Ended(const Task& task)
{
    Print(EventToJson("OperationStatusChanged", task.last));
}

void JsonProgress::NotKnown(const Task& task, const std::string& reason)
{
    Print({{"event", "NotKnown"},
           {"target", task.target},
           {"uuid", task.uuid.empty() ? Json() : Json(task.uuid)},
           {"message", reason}});
}

void JsonProgress::Continues(const Task& task)
{
    Print({{"event", "Continues"}, {"uuid", task.uuid}, {"target", task.target}});
}

void JsonProgress::NotRequested(const Task& task)
{
    Print({{"event", "NotRequested"}, {"target", task.target}});
}

void JsonProgress::DaemonVanished()
{
    Print({{"event", "DaemonVanished"}});
}

void JsonProgress::DaemonAppeared()
{
    Print({{"event", "DaemonAppeared"}});
}

void JsonProgress::Print(const Json& event)
{
    m_out.Document(event);
    m_out.Flush();
}

} // namespace EmporiumCtl
