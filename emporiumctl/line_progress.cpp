// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/line_progress.h"

#include "emporiumctl/failure.h"
#include "emporiumctl/names.h"

namespace EmporiumCtl {

void LineProgress::Created(const Task& task)
{
    if (!m_out.Quiet()) {
        Print(NameOf(task.type) + ' ' + task.target + " has the UUID " + task.uuid, Colour::None);
    }
}

void LineProgress::Refused(const Task& task, const CallError& error)
{
    PrintError(About(task.target, error));
}

void LineProgress::Changed(const Task& task)
{
    if (!m_out.Quiet()) {
        Print(Describe(task.last), Colour::None);
    }
}

void LineProgress::Ended(const Task& task)
{
    if (task.Failed()) {
        m_out.Quiet() ? PrintError(Describe(task.last)) : Print(Describe(task.last), Colour::Red);
    } else if (!m_out.Quiet()) {
        Print(Describe(task.last), Colour::Green);
    }
}

void LineProgress::NotKnown(const Task& task, const std::string& reason)
{
    const std::string uuid = task.uuid.empty() ? "" : " (" + task.uuid + ')';
    PrintError(Shown(task.target) + ": the outcome is not known" + uuid + ": " + reason);
}

void LineProgress::Continues(const Task& task)
{
    Print("The operation continues: " + task.uuid, Colour::None);
}

void LineProgress::NotRequested(const Task& task)
{
    PrintError(Shown(task.target) + ": not requested");
}

void LineProgress::DaemonVanished()
{
    PrintError("the application-store daemon has vanished; waiting for its return");
}

void LineProgress::DaemonAppeared()
{
    PrintError("the application-store daemon is back");
}

void LineProgress::Print(const std::string& line, Colour colour)
{
    m_out.Line(line, colour);
    m_out.Flush();
}

void LineProgress::PrintError(const std::string& message)
{
    Complain(message);
}

} // namespace EmporiumCtl
