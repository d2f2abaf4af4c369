// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/call_error.h"
#include "emporiumctl/exit_status.h"
#include "emporiumctl/output.h"

#include <optional>
#include <string>

namespace EmporiumCtl {

/// Why a command ends without having done its work.
struct Failure
{
    ExitStatus status = ExitStatus::Failed;
    CallError error;
    std::optional<std::string> target = {}; ///< What the error is about.
};

ExitStatus StatusOf(CallOutcome outcome);

/// A failure that no call has caused.
Failure FailureOf(ExitStatus status, const std::string& message);

/// A target or a path in a message: in quotes if it is empty.
std::string Shown(const std::string& target);

/// The error with the target that it is about.
std::string About(const std::string& target, const CallError& error);

/// Prints the failure, with JSON as a document too, and returns its status.
ExitStatus Report(Output& out, const Failure& failure);

} // namespace EmporiumCtl
