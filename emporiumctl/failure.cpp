// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/failure.h"

namespace EmporiumCtl {

ExitStatus StatusOf(CallOutcome outcome)
{
    switch (outcome) {
    case CallOutcome::NotKnown:
        return ExitStatus::NotKnown;
    case CallOutcome::NoDaemon:
    case CallOutcome::BusLost:
        return ExitStatus::NoDaemon;
    case CallOutcome::Refused:
        break;
    }
    return ExitStatus::Failed;
}

Failure FailureOf(ExitStatus status, const std::string& message)
{
    Failure failure;
    failure.status = status;
    failure.error.message = message;
    return failure;
}

std::string Shown(const std::string& target)
{
    return target.empty() ? "''" : target;
}

std::string About(const std::string& target, const CallError& error)
{
    return Shown(target) + ": " + error.Text();
}

ExitStatus Report(Output& out, const Failure& failure)
{
    if (out.Json()) {
        Json error = ToJson(failure.error);
        if (failure.target) {
            error["target"] = *failure.target;
        }
        out.Document({{"error", error}});
        out.Flush();
    }
    Complain(failure.target ? About(*failure.target, failure.error) : failure.error.Text());
    return failure.status;
}

} // namespace EmporiumCtl
