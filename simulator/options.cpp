// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/options.h"

#include "simulator/files/text_file.h"
#include "simulator/output.h"
#include "text/suggestion.h"

#include <CLI/CLI.hpp>
#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace Simulator {

namespace {

constexpr const char* footer =
    R"(Examples:
  emporium-simulator
      Serve the built-in catalogue on the session bus until interrupted.
  emporium-simulator --make-package clock.pkg --id org.example.clock --version 1.0
      Write a package file that can be installed.
  emporium-simulator --private-bus -- sh -c 'gdbus introspect --session \
          --dest org.velmora.Emporium --object-path /org/velmora/Emporium'
      Run a command on a private bus and exit with its status.
  emporium-simulator ctl FailCall Install 1 FileConflict ''
      Call a verb of the control interface; "ctl --help" lists them.
  emporium-simulator --version
      Print the version.
  emporium-simulator --scenario failing-install.scenario --private-bus -- ./my-test
      Inject a failure in a test suite.

Exit status: 0 done, 1 failed, 2 usage or a damaged input file, 3 no bus;
with --private-bus, that of the command (127: it could not be started).)";

using Arguments = std::vector<std::string>;
constexpr const char* separator = "--";

void AddDaemonOptions(CLI::App& app, Options& options)
{
    app.add_option("--catalogue", options.catalogue, "What the daemon reports initially")
        ->type_name("FILE");
    app.add_option("--state", options.state, "Keep all changes across restarts")->type_name("DIR");
    app.add_option("--packages", options.packages, "Generate a catalogue of N packages")
        ->type_name("N");
    app.add_option("--dictionary-entries", options.dictionaryEntries,
                   "... with D dictionary entries in each package")
        ->type_name("D");
    app.add_option("--steps", options.pace.steps, "Status steps of an operation before its end (3)")
        ->type_name("N");
    app.add_option("--step-ms", options.pace.stepMilliseconds,
                   "Milliseconds between the steps (200)")
        ->type_name("N");
    app.add_option("--do", options.verbs,
                   "Execute a verb of the control interface; several options in their order")
        ->type_name("VERB")
        ->allow_extra_args(false)
        ->take_all();
    app.add_option("--scenario", options.scenario, "... and those in the file")->type_name("FILE");
    app.add_flag("--check", options.check, "Only check the catalogue, scenario and recording");
    app.add_option("--replay", options.replay,
                   "Replay a recording, from the first GetAllProperties on")
        ->type_name("FILE");
    app.add_option("--speed", options.speed, "... X times as fast (1)")->type_name("X");
    app.add_flag("--paused", options.paused, "... from the verb StartReplay on");
}

void AddPrivateBusOptions(CLI::App& app, Options& options)
{
    app.add_flag("--verbose", options.verbose, "Print each call and signal on standard error");
    app.add_flag("--private-bus", options.privateBus,
                 "Serve on a new bus, run the command after -- ($SHELL) on it, and exit with its "
                 "status");
    app.add_flag_callback(
        "--private-home", [&options] { options.home = Home::Private; },
        "... with a new home and new XDG directories, not only XDG_CACHE_HOME");
    app.add_flag_callback(
        "--keep-cache", [&options] { options.home = Home::User; },
        "... with the user's XDG_CACHE_HOME");
}

/// The option parser takes the largest number for one that is too large.
std::string FitsIntoASize(const std::string& text)
{
    guint64 size = 0;
    const bool fits =
        g_ascii_string_to_unsigned(text.c_str(), 10, 0, G_MAXUINT64, &size, nullptr) != FALSE;
    return fits ? "" : "not a size: " + text;
}

void AddPackageOptions(CLI::App& app, Options& options)
{
    PackageFile& package = options.package;
    app.add_option("--make-package", options.makePackage, "Write a package file and exit")
        ->type_name("FILE");
    app.add_option("--id", package.id, "... its ID (required)")->type_name("ID");
    app.add_option("--version", package.version, "... its version (required)")
        ->type_name("VERSION");
    app.add_option("--architecture", package.architecture, "... its architecture (noarch)")
        ->type_name("NAME");
    app.add_option("--developer", package.developer, "... ID of its developer certificate")
        ->type_name("ID");
    app.add_option("--subgroup", package.subgroup, "... subgroup of its developer certificate")
        ->type_name("NAME");
    app.add_option("--payload", package.payloadSize, "... its payload size in bytes")
        ->type_name("N")
        ->check(FitsIntoASize);
}

struct Relation
{
    const char* option;
    const char* other;
};

// Each option on the left has no effect without the one on the right.
constexpr Relation needed[] = {
    {"--dictionary-entries", "--packages"},
    {"--speed", "--replay"},
    {"--paused", "--replay"},
    {"--private-home", "--private-bus"},
    {"--keep-cache", "--private-bus"},
    {"--id", "--make-package"},
    {"--version", "--make-package"},
    {"--architecture", "--make-package"},
    {"--developer", "--make-package"},
    {"--subgroup", "--make-package"},
    {"--payload", "--make-package"},
    {"--make-package", "--id"},
    {"--make-package", "--version"},
};

// One of the two would override the other.
constexpr Relation contradicting[] = {
    {"--packages", "--catalogue"}, {"--replay", "--catalogue"},        {"--replay", "--state"},
    {"--replay", "--packages"},    {"--keep-cache", "--private-home"}, {"--check", "--private-bus"},
};

constexpr const char* withoutMakePackage[] = {
    "--catalogue", "--state",    "--packages", "--steps",  "--step-ms",
    "--do",        "--scenario", "--check",    "--replay", "--private-bus"};

constexpr const char* fileOptions[] = {"--catalogue", "--state",        "--scenario",
                                       "--replay",    "--make-package", "--do"};

void CheckRelations(const CLI::App& app)
{
    const auto given = [&app](const char* name) { return app.get_option(name)->count() != 0; };
    const auto contradict = [&given](const char* option, const char* other) {
        if (given(option) && given(other)) {
            throw UsageError(std::string(option) + " and " + other + " exclude each other");
        }
    };
    for (const Relation& relation : needed) {
        if (given(relation.option) && !given(relation.other)) {
            throw UsageError(std::string(relation.option) + " needs " + relation.other);
        }
    }
    for (const Relation& relation : contradicting) {
        contradict(relation.option, relation.other);
    }
    for (const char* option : withoutMakePackage) {
        contradict("--make-package", option);
    }
}

// A later pace or speed overrides that of a script; of other options, one of the values would be lost.
void CheckRepetitions(const CLI::App& app)
{
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();
        const bool mayBeRepeated = name == "--steps" || name == "--step-ms" || name == "--speed" ||
                                   name == "--do" || option->get_items_expected_max() == 0;
        if (option->count() > 1 && !mayBeRepeated) {
            throw UsageError(name + " is given twice");
        }
    }
}

void CheckFileNames(const CLI::App& app)
{
    int standardInputs = 0;
    for (const char* name : fileOptions) {
        for (const std::string& value : app.get_option(name)->results()) {
            if (value.empty()) {
                throw UsageError(std::string(name) + " has an empty value");
            }
            standardInputs += value == standardInput ? 1 : 0;
        }
    }
    if (standardInputs > 1) {
        throw UsageError("only one file can be the standard input");
    }
}

/// The first argument that is neither an option nor an option's value. The command begins there; it
/// must stay unchanged, so CLI11 never sees it.
Arguments::const_iterator EndOfOptions(const CLI::App& app, const Arguments& arguments)
{
    auto argument = arguments.begin();
    while (argument != arguments.end() && *argument != separator && argument->starts_with('-')) {
        const CLI::Option* const option = app.get_option_no_throw(*argument);
        const bool hasValue = option != nullptr && option->get_items_expected_min() > 0;
        std::advance(argument, hasValue && std::next(argument) != arguments.end() ? 2 : 1);
    }
    return argument;
}

// CLI11 does not name the option that was probably meant.
void RequireKnownOptions(const CLI::App& app, Arguments::const_iterator argument,
                         Arguments::const_iterator end)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        names.push_back(option->get_name());
    }
    while (argument < end) {
        const std::string name = argument->substr(0, argument->find('='));
        const CLI::Option* const option = app.get_option_no_throw(name);
        if (option == nullptr) {
            throw UsageError("unknown option " + name + Text::DidYouMean(name, names));
        }
        const bool valueFollows =
            option->get_items_expected_min() > 0 && name.size() == argument->size();
        argument += valueFollows ? std::min<std::ptrdiff_t>(2, end - argument) : 1;
    }
}

/// Reverses the arguments, as CLI11 expects them, and splits "--option=" into "--option" and an empty
/// value: CLI11 would take the next argument for the value.
Arguments ReversedForParsing(Arguments::const_iterator begin, Arguments::const_iterator end)
{
    Arguments reversed;
    for (auto argument = begin; argument != end; ++argument) {
        const bool hasEmptyValue =
            argument->starts_with("--") && argument->find('=') == argument->size() - 1;
        reversed.push_back(hasEmptyValue ? argument->substr(0, argument->size() - 1) : *argument);
        if (hasEmptyValue) {
            reversed.emplace_back();
        }
    }
    std::reverse(reversed.begin(), reversed.end());
    return reversed;
}

std::string Shell()
{
    const char* shell = std::getenv("SHELL");
    return shell != nullptr && *shell != '\0' ? shell : "/bin/sh";
}

void Check(const Options& options)
{
    if (!options.privateBus && !options.command.empty()) {
        const std::string& argument = options.command.front();
        throw UsageError("unexpected argument: " + argument + Text::DidYouMean(argument, {"ctl"}));
    }
    if (!options.command.empty() && options.command.front().empty()) {
        throw UsageError("the command is empty");
    }
    if (!(options.speed > 0.0 && options.speed < 1e9)) {
        throw UsageError("--speed takes a number greater than 0");
    }
}

} // namespace

std::optional<Options> ParseOptions(const Arguments& arguments)
{
    if (arguments == Arguments{"--version"}) {
        Print("emporium-simulator " EMPORIUM_VERSION "\n");
        return std::nullopt;
    }
    Options options;
    CLI::App app{"Stands in for the application-store daemon on the session bus.",
                 "emporium-simulator"};
    app.option_defaults()->take_last();
    AddDaemonOptions(app, options);
    AddPrivateBusOptions(app, options);
    AddPackageOptions(app, options);
    app.footer(footer);

    const auto end = EndOfOptions(app, arguments);
    RequireKnownOptions(app, arguments.begin(), end);
    try {
        app.parse(ReversedForParsing(arguments.begin(), end));
    } catch (const CLI::Success&) {
        Print(app.help());
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    CheckRelations(app);
    CheckRepetitions(app);
    CheckFileNames(app);
    const bool separated = end != arguments.end() && *end == separator;
    options.command.assign(separated ? std::next(end) : end, arguments.end());
    Check(options);
    if (options.privateBus && options.command.empty()) {
        options.command = {Shell()};
    }
    return options;
}

} // namespace Simulator
