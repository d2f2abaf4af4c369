// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/command_line.h"

#include "emporiumctl/events.h"
#include "emporiumctl/version.h"
#include "text/suggestion.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <map>
#include <utility>

namespace EmporiumCtl {
namespace {

constexpr unsigned longestTimeout = 1'000'000'000;

/// CLI11 takes the argument after "--option=" for the value, so an empty value becomes an argument.
std::vector<std::string> WithEmptyValues(const std::vector<std::string>& arguments)
{
    std::vector<std::string> separate;
    bool options = true;
    for (const std::string& argument : arguments) {
        options = options && argument != "--";
        if (options && argument.size() > 3 && argument.rfind("--", 0) == 0 &&
            argument.find('=') == argument.size() - 1) {
            // CLI11 takes an empty value for a missing one, which this option allows.
            if (argument == "--wait=") {
                throw UsageError("--wait: an empty value");
            }
            separate.push_back(argument.substr(0, argument.size() - 1));
            separate.emplace_back();
        } else {
            separate.push_back(argument);
        }
    }
    return separate;
}

std::vector<std::string> CommandNames(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::App* const command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<std::string> OptionNames(const CLI::App& app, const CLI::App* command)
{
    std::vector<std::string> names;
    for (const CLI::App* const owner : {&app, command}) {
        if (owner == nullptr) {
            continue;
        }
        for (const CLI::Option* const option : owner->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
            for (const std::string& name : option->get_snames()) {
                names.push_back('-' + name);
            }
        }
    }
    return names;
}

bool Contains(const std::vector<std::string>& texts, const std::string& text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

} // namespace

CommandLine::CommandLine() : m_app("Talks to the application-store daemon.", "emporiumctl")
{
    m_app.require_subcommand(1);
    m_app.fallthrough();
    AddCommonOptions();
    AddQueries();
    AddOperation("install", "Install packages from files", "FILE", Common::OperationType::Install);
    AddOperation("upgrade", "Upgrade packages from files", "FILE", Common::OperationType::Upgrade);
    AddOperation("remove", "Remove installed packages", "ID", Common::OperationType::Remove);
    AddWait();
    AddLaunch("start", "Start an application", Start);
    AddLaunch("restart", "Restart an application", Restart);
    AddEvents();
    AddRest();
    // Last: a subcommand inherits the footer that is set when it is added.
    m_app.footer("Examples:\n"
                 "  emporiumctl list --filter calc        packages whose ID contains \"calc\"\n"
                 "  emporiumctl install app.pkg           install, and wait for the end\n"
                 "  emporiumctl --json watch | jq .event  events, one JSON document per line\n"
                 "  emporium-simulator --private-bus -- emporiumctl list\n"
                 "                                        without a device\n\n"
                 "Exit status: 0 done, 1 failed or refused, 2 usage, 3 no daemon or bus,\n"
                 "4 the outcome is not known: time-out, interrupted, or the daemon vanished.");
}

void CommandLine::AddCommonOptions()
{
    const std::map<std::string, ColourMode> modes{
        {"auto", ColourMode::Auto}, {"always", ColourMode::Always}, {"never", ColourMode::Never}};
    m_app.set_version_flag("--version", "emporiumctl " EMPORIUM_VERSION,
                           "Print the version and exit");
    m_app.add_flag("--json", m_common.style.json,
                   "Print JSON documents instead of text for people");
    m_app.add_flag("--quiet", m_common.style.quiet, "Print no progress, only failures and results");
    m_app.add_flag("--verbose", m_common.verbose, "Print the log lines of the library");
    m_app
        .add_option_function<std::string>(
            "--color",
            [this, modes](const std::string& mode) { m_common.style.colour = modes.at(mode); },
            "Use colours: auto (on a terminal), always or never")
        ->option_text("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    m_app.add_option("--timeout", m_common.timeout, "Give up after this many seconds; 0: never")
        ->option_text("SECONDS")
        ->check(CLI::Range(0U, longestTimeout));
    m_app.add_option("--host", m_common.host, "Use the bus of this machine, over ssh")
        ->option_text("[USER@]HOST")
        ->check([](const std::string& host) { return host.empty() ? "an empty host" : ""; });
}

void CommandLine::OnDaemon(Command command)
{
    m_command = [command = std::move(command)](Session& session, Output& out) {
        const auto failure = session.Connect();
        return failure ? Report(out, *failure) : command(session, out);
    };
}

void CommandLine::AddLayout(CLI::App& command, TableLayout& layout,
                            const std::vector<std::string>& columns)
{
    command.add_option("--columns", layout.columns, "Only these columns, separated by commas")
        ->option_text("NAME,...")
        ->delimiter(',')
        ->check(CLI::IsMember(columns));
    command.add_option("--sort", layout.sortedBy, "Sort by this column")
        ->option_text("NAME")
        ->check(CLI::IsMember(columns));
    command.add_flag_callback(
        "--no-header", [&layout] { layout.heading = false; }, "Without the heading");
}

void CommandLine::AddQueries()
{
    auto* const list = m_app.add_subcommand("list", "List the installed packages");
    list->add_option("--developer", m_list.developer, "... of this developer certificate ID");
    list->add_option("--subgroup", m_list.subgroup, "... of this certificate subgroup");
    list->add_option("--filter", m_list.filter, "... whose ID contains this text");
    AddLayout(*list, m_list.layout, packageColumns);
    list->callback([this] {
        OnDaemon([this](Session& session, Output& out) { return List(session, out, m_list); });
    });

    auto* const info = m_app.add_subcommand("info", "Show a package");
    info->add_option("ID", m_id, "The package's ID")->required();
    info->callback([this] {
        OnDaemon([this](Session& session, Output& out) { return Info(session, out, m_id); });
    });

    auto* const operations = m_app.add_subcommand("operations", "List operations");
    auto* const active = operations->add_flag("--active", m_active, "Only unfinished ones");
    operations->add_flag("--completed", m_completed, "Only finished ones")->excludes(active);
    AddLayout(*operations, m_operations, operationColumns);
    operations->callback([this] {
        OnDaemon([this](Session& session, Output& out) {
            return Operations(session, out,
                              m_active      ? WhichOperations::Active
                              : m_completed ? WhichOperations::Completed
                                            : WhichOperations::All,
                              m_operations);
        });
    });
}

void CommandLine::AddOperation(const char* name, const char* description, const char* target,
                               Common::OperationType type)
{
    auto* const command = m_app.add_subcommand(name, description);
    command->add_option(target, m_operation.targets, "The packages")->required();
    command->add_flag_callback(
        "--no-wait", [this] { m_operation.wait = false; },
        "Print the operations' UUIDs and do not wait");
    command->callback([this, type] {
        m_operation.type = type;
        m_operation.remote = !m_common.host.empty();
        OnDaemon([this](Session& session, Output& out) {
            return RunOperations(session, out, m_operation);
        });
    });
}

void CommandLine::AddWait()
{
    auto* const command = m_app.add_subcommand("wait", "Wait for the ends of operations");
    command->add_option("UUID", m_uuids, "The operations")->required();
    command->callback([this] {
        OnDaemon([this](Session& session, Output& out) {
            return WaitForOperations(session, out, m_uuids);
        });
    });
}

void CommandLine::AddLaunch(const char* name, const char* description,
                            ExitStatus (*launch)(Session&, Output&, const std::string&))
{
    auto* const command = m_app.add_subcommand(name, description);
    command->add_option("ID", m_id, "The application's package ID")->required();
    command->callback([this, launch] {
        OnDaemon(
            [this, launch](Session& session, Output& out) { return launch(session, out, m_id); });
    });
}

void CommandLine::AddEvents()
{
    auto* const watch = m_app.add_subcommand("watch", "Print events as they arrive, until Ctrl-C");
    watch->add_option("--package", m_watch.packages, "Only events of this package; repeatable")
        ->option_text("ID")
        ->allow_extra_args(false);
    watch->add_option("--event", m_watch.events, "Only events of this name; repeatable")
        ->option_text("NAME")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(eventNames));
    watch->add_flag("--timestamps", m_watch.timestamps, "Print the time of each event, in UTC");
    watch->callback([this] {
        OnDaemon([this](Session& session, Output& out) { return Watch(session, out, m_watch); });
    });

    auto* const record = m_app.add_subcommand(
        "record", "Write the snapshot and every event to a file, until Ctrl-C");
    record
        ->add_option("FILE", m_record.path,
                     "The recording, for emporium-simulator --replay; -: standard output")
        ->required();
    record->add_flag("--force", m_record.force, "Replace the file if it exists");
    record->callback([this] {
        OnDaemon([this](Session& session, Output& out) { return Record(session, out, m_record); });
    });
}

void CommandLine::AddRest()
{
    auto* const status =
        m_app.add_subcommand("status", "Show whether the daemon answers, and how much it manages");
    status
        ->add_option_function<std::vector<std::string>>(
            "--wait",
            [this](const std::vector<std::string>& seconds) {
                m_status.wait = true;
                if (!seconds.empty() && !seconds.front().empty()) {
                    m_status.limit = static_cast<unsigned>(std::stoul(seconds.front()));
                }
            },
            "Wait for the daemon, at most this many seconds")
        ->option_text("[=SECONDS]")
        ->expected(0, 1)
        ->check(CLI::Range(0U, longestTimeout));
    status->callback([this] {
        m_command = [this](Session& session, Output& out) {
            return Status(session, out, m_status);
        };
    });

    auto* const errors = m_app.add_subcommand("errors", "List the error codes");
    errors->add_option("CODE|NAME", m_error, "Only this one, by number or name");
    errors->callback(
        [this] { m_command = [this](Session&, Output& out) { return Errors(out, m_error); }; });
}

std::optional<std::string> CommandLine::Parse(std::vector<std::string> arguments)
{
    arguments = WithEmptyValues(arguments);
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        m_app.parse(std::move(reversed));
    } catch (const CLI::CallForVersion& version) {
        return version.what();
    } catch (const CLI::Success&) {
        const auto selected = m_app.get_subcommands();
        return selected.empty() ? m_app.help() : selected.front()->help("emporiumctl");
    } catch (const CLI::ParseError& error) {
        const std::string suggestion = Suggestion(arguments);
        throw UsageError(suggestion.empty() ? error.what() : suggestion);
    }
    Check();
    return {};
}

void CommandLine::Check() const
{
    for (const TableLayout& layout : {m_list.layout, m_operations}) {
        if (m_common.style.json && (!layout.columns.empty() || !layout.heading)) {
            throw UsageError("--columns and --no-header are for text; --json prints everything");
        }
    }
}

/// Names the first command or option that does not exist, with a similar one.
std::string CommandLine::Suggestion(const std::vector<std::string>& arguments) const
{
    const CLI::App* command = nullptr;
    for (std::size_t index = 0; index < arguments.size() && arguments[index] != "--"; ++index) {
        const std::string& argument = arguments[index];
        if (argument.size() > 1 && argument.front() == '-') {
            const std::string name = argument.substr(0, argument.find('='));
            const std::vector<std::string> names = OptionNames(m_app, command);
            if (!Contains(names, name)) {
                return "there is no option '" + name + "'" + Text::DidYouMean(name, names);
            }
            const CLI::Option* const option = m_app.get_option_no_throw(name);
            const bool hasValue = option != nullptr && option->get_items_expected_min() > 0;
            index += hasValue && name == argument ? 1 : 0;
        } else if (command == nullptr) {
            const std::vector<std::string> names = CommandNames(m_app);
            if (!Contains(names, argument)) {
                return "there is no command '" + argument + "'" + Text::DidYouMean(argument, names);
            }
            command = m_app.get_subcommand(argument);
        }
    }
    return "";
}

} // namespace EmporiumCtl
