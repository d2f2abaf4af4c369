// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/commands.h"
#include "emporiumctl/exit_status.h"
#include "emporiumctl/output.h"

#include <CLI/App.hpp>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// A command line that is wrong.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The options of all commands.
struct CommonOptions
{
    OutputStyle style;
    std::optional<unsigned> timeout; ///< In seconds.
    std::string host;                ///< Empty: this machine.
    bool verbose = false;
};

/// Reads the command line.
class CommandLine
{
public:
    /// What the user has asked for.
    using Command = std::function<ExitStatus(Session&, Output&)>;

    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// Returns a text to print instead of running a command: help or the version. Throws UsageError.
    std::optional<std::string> Parse(std::vector<std::string> arguments);

    const CommonOptions& Common() const { return m_common; }
    const Command& Selected() const { return m_command; }

private:
    void AddCommonOptions();
    void AddQueries();
    void AddLayout(CLI::App& command, TableLayout& layout, const std::vector<std::string>& columns);
    void AddOperation(const char* name, const char* description, const char* target,
                      Common::OperationType type);
    void AddWait();
    void AddLaunch(const char* name, const char* description,
                   ExitStatus (*launch)(Session&, Output&, const std::string&));
    void AddEvents();
    void AddRest();
    /// Selects a command that needs the daemon.
    void OnDaemon(Command command);
    void Check() const;
    std::string Suggestion(const std::vector<std::string>& arguments) const;

    CLI::App m_app;
    CommonOptions m_common;
    Command m_command;
    ListOptions m_list;
    TableLayout m_operations;
    OperationOptions m_operation;
    StatusOptions m_status;
    WatchOptions m_watch;
    RecordOptions m_record;
    std::vector<std::string> m_uuids;
    std::string m_id;
    std::optional<std::string> m_error;
    bool m_active = false;
    bool m_completed = false;
};

} // namespace EmporiumCtl
