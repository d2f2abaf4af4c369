// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/exit_status.h"
#include "emporiumctl/output.h"

#include <emporium/emporium.h>

#include <optional>
#include <string>
#include <vector>

namespace EmporiumCtl {

struct ListOptions
{
    std::optional<std::string> developer;
    std::optional<std::string> subgroup;
    std::optional<std::string> filter;
};

enum class WhichOperations
{
    All,
    Active,
    Completed
};

struct WaitOptions
{
    bool wait = true;
    unsigned limit = 0; ///< In seconds; 0: none.
};

// The commands of the program. The connection must be valid.
ExitStatus List(const Emporium::DaemonConnection& connection, const Output& out,
                const ListOptions& options);
ExitStatus Info(const Emporium::DaemonConnection& connection, const Output& out,
                const std::string& id);
ExitStatus Operations(const Emporium::DaemonConnection& connection, const Output& out,
                      WhichOperations which);
/// Creates an operation for each target and, if the options say so, waits until all have ended.
ExitStatus RunOperations(const Emporium::DaemonConnection& connection, const Output& out,
                         Common::OperationType type, const std::vector<std::string>& targets,
                         const WaitOptions& options);
ExitStatus Start(const Emporium::DaemonConnection& connection, const std::string& id);
ExitStatus Restart(const Emporium::DaemonConnection& connection, const std::string& id);
ExitStatus Watch(const Emporium::DaemonConnection& connection, const Output& out);
ExitStatus Status(const Emporium::DaemonConnection& connection, const Output& out);
ExitStatus Record(const Emporium::DaemonConnection& connection, const std::string& path);

/// Prints all error codes, or the one with this number, short name or bus name.
ExitStatus Errors(const Output& out, const std::string& wanted);

} // namespace EmporiumCtl
