// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/exit_status.h"
#include "emporiumctl/output.h"
#include "emporiumctl/session.h"
#include "emporiumctl/table.h"

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
    TableLayout layout;
};

enum class WhichOperations
{
    All,
    Active,
    Completed
};

struct OperationOptions
{
    Common::OperationType type{};
    std::vector<std::string> targets;
    bool wait = true;
    bool remote = false; ///< The daemon is on another host.
};

struct StatusOptions
{
    bool wait = false;
    unsigned limit = 0; ///< In seconds; 0: none.
};

struct WatchOptions
{
    std::vector<std::string> packages; ///< Empty: all, and events without a package.
    std::vector<std::string> events;   ///< Empty: all.
    bool timestamps = false;
};

struct RecordOptions
{
    std::string path; ///< "-": standard output.
    bool force = false;
};

// The commands of the program. Except for Status(), the session must be connected to the daemon.
ExitStatus List(Session& session, Output& out, const ListOptions& options);
ExitStatus Info(Session& session, Output& out, const std::string& id);
ExitStatus Operations(Session& session, Output& out, WhichOperations which,
                      const TableLayout& layout);
/// Creates an operation for each target and, if the options say so, waits until all have ended.
ExitStatus RunOperations(Session& session, Output& out, const OperationOptions& options);
ExitStatus WaitForOperations(Session& session, Output& out, const std::vector<std::string>& uuids);
ExitStatus Start(Session& session, Output& out, const std::string& id);
ExitStatus Restart(Session& session, Output& out, const std::string& id);
ExitStatus Watch(Session& session, Output& out, const WatchOptions& options);
ExitStatus Record(Session& session, Output& out, const RecordOptions& options);
ExitStatus Status(Session& session, Output& out, const StatusOptions& options);

/// Prints all error codes, or the one with this number, short name or bus name.
ExitStatus Errors(Output& out, const std::optional<std::string>& wanted);

/// The columns of the tables, as the options name them.
inline const std::vector<std::string> packageColumns{"id", "version", "developer", "subgroup"};
inline const std::vector<std::string> operationColumns{"uuid", "type", "package", "status",
                                                       "error"};

} // namespace EmporiumCtl
