// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/output.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <functional>
#include <iostream>

namespace {

using namespace EmporiumCtl;

/// The action that the command line selects.
using Command = std::function<ExitStatus(const Output&)>;

/// A daemon always reports its architecture: without one, there was no answer.
bool HasDaemon(const Emporium::DaemonConnection& connection)
{
    return connection && !connection.GetArchitecture().empty();
}

/// A command that needs the daemon.
using DaemonCommand = std::function<ExitStatus(const Emporium::DaemonConnection&, const Output&)>;

ExitStatus OnDaemon(const DaemonCommand& command, const Output& out)
{
    const auto connection = Emporium::GetDaemonConnection();
    if (!HasDaemon(connection)) {
        std::cerr << "emporiumctl: "
                  << (connection ? "the application-store daemon does not answer"
                                 : "there is no session bus")
                  << '\n';
        return ExitStatus::NoDaemon;
    }
    return command(connection, out);
}

class CommandLine
{
public:
    CommandLine()
    {
        m_app.require_subcommand(1);
        m_app.fallthrough();
        m_app.add_flag("--json", m_json, "Print JSON documents instead of text for people");
        AddQueries();
        AddOperation("install", "Install packages from files", "FILE",
                     Common::OperationType::Install);
        AddOperation("upgrade", "Upgrade packages from files", "FILE",
                     Common::OperationType::Upgrade);
        AddOperation("remove", "Remove installed packages", "ID", Common::OperationType::Remove);
        AddLaunch("start", "Start an application", Start);
        AddLaunch("restart", "Restart an application", Restart);
        m_app.add_subcommand("watch", "Print events as they arrive, until Ctrl-C")
            ->callback([this] { UseDaemon(Watch); });
        AddRest();
        // Last: a subcommand inherits the footer that is set when it is added.
        m_app.footer(
            "Examples:\n"
            "  emporiumctl list --filter calc        packages whose ID contains \"calc\"\n"
            "  emporiumctl install app.pkg           install, and wait for the end\n"
            "  emporiumctl --json watch | jq .event  events, one JSON document per line\n"
            "  emporium-simulator --private-bus -- emporiumctl list\n"
            "                                        without a device\n\n"
            "Exit status: 0 done, 1 the operation or command failed, 2 usage, 3 no daemon or bus,\n"
            "4 timeout or interrupted.");
    }

    int Run(int argc, char** argv)
    {
        try {
            m_app.parse(argc, argv);
        } catch (const CLI::Success& help) {
            return m_app.exit(help);
        } catch (const CLI::ParseError& error) {
            m_app.exit(error);
            return static_cast<int>(ExitStatus::Usage);
        }
        const Output out = TakeOverStandardOutput(m_json);
        const ExitStatus status = m_command(out);
        out.stream.flush();
        return static_cast<int>(status);
    }

private:
    void UseDaemon(const DaemonCommand& command)
    {
        m_command = [command](const Output& out) { return OnDaemon(command, out); };
    }

    void AddRest()
    {
        m_app.add_subcommand("status", "Show whether the daemon answers, and how much it manages")
            ->callback([this] { UseDaemon(Status); });

        auto* const record = m_app.add_subcommand(
            "record", "Write the snapshot and every event to a file, until Ctrl-C");
        record->add_option("FILE", m_path, "The recording, for emporium-simulator --replay")
            ->required();
        record->callback([this] {
            UseDaemon([this](const auto& connection, const Output&) {
                return Record(connection, m_path);
            });
        });

        auto* const errors = m_app.add_subcommand("errors", "List the error codes");
        errors->add_option("CODE|NAME", m_error, "Only this one, by number or name");
        errors->callback(
            [this] { m_command = [this](const Output& out) { return Errors(out, m_error); }; });
    }

    void AddQueries()
    {
        auto* const list = m_app.add_subcommand("list", "List the installed packages");
        list->add_option("--developer", m_list.developer, "... of this developer certificate ID");
        list->add_option("--subgroup", m_list.subgroup, "... of this certificate subgroup");
        list->add_option("--filter", m_list.filter, "... whose ID contains this text");
        list->callback([this] {
            UseDaemon([this](const auto& connection, const Output& out) {
                return List(connection, out, m_list);
            });
        });

        auto* const info = m_app.add_subcommand("info", "Show a package");
        info->add_option("ID", m_id, "The package's ID")->required();
        info->callback([this] {
            UseDaemon([this](const auto& connection, const Output& out) {
                return Info(connection, out, m_id);
            });
        });

        auto* const operations = m_app.add_subcommand("operations", "List operations");
        auto* const active = operations->add_flag("--active", m_active, "Only unfinished ones");
        operations->add_flag("--completed", m_completed, "Only finished ones")->excludes(active);
        operations->callback([this] {
            UseDaemon([this](const auto& connection, const Output& out) {
                return Operations(connection, out,
                                  m_active      ? WhichOperations::Active
                                  : m_completed ? WhichOperations::Completed
                                                : WhichOperations::All);
            });
        });
    }

    void AddOperation(const char* name, const char* description, const char* target,
                      Common::OperationType type)
    {
        auto* const command = m_app.add_subcommand(name, description);
        command->add_option(target, m_targets, "The packages")->required();
        command->add_flag_callback(
            "--no-wait", [this] { m_wait.wait = false; },
            "Print the operations' UUIDs and do not wait");
        command->add_option("--timeout", m_wait.limit, "Wait this many seconds at most");
        command->callback([this, type] {
            UseDaemon([this, type](const auto& connection, const Output& out) {
                return RunOperations(connection, out, type, m_targets, m_wait);
            });
        });
    }

    void AddLaunch(const char* name, const char* description,
                   ExitStatus (*launch)(const Emporium::DaemonConnection&, const std::string&))
    {
        auto* const command = m_app.add_subcommand(name, description);
        command->add_option("ID", m_id, "The application's package ID")->required();
        command->callback([this, launch] {
            UseDaemon([this, launch](const auto& connection, const Output&) {
                return launch(connection, m_id);
            });
        });
    }

    CLI::App m_app{"Talks to the application-store daemon.", "emporiumctl"};
    Command m_command;
    ListOptions m_list;
    WaitOptions m_wait;
    std::vector<std::string> m_targets;
    std::string m_id;
    std::string m_path;
    std::string m_error;
    bool m_json = false;
    bool m_active = false;
    bool m_completed = false;
};

} // namespace

int main(int argc, char** argv)
{
    try {
        return CommandLine().Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "emporiumctl: " << error.what() << '\n';
        return static_cast<int>(ExitStatus::Failed);
    }
}
