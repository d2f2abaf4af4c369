// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/options.h"

#include "simulator/glib_ptr.h"

#include <memory>

namespace Simulator {

namespace {

constexpr const char* description =
    R"(Examples:
  emporium-simulator
      Serve the built-in catalogue on the session bus until interrupted.
  emporium-simulator --make-package calculator.pkg --id org.example.clock --version 1.0
      Write a package file that can be installed.
  emporium-simulator --private-bus -- sh -c 'gdbus introspect --session \
          --dest org.velmora.Emporium --object-path /org/velmora/Emporium'
      Run a command on a bus of its own and end with its exit status.
  emporium-simulator --scenario failing-install.scenario --private-bus -- ./my-test
      Rehearse a failure in a test suite.

Exit status: 0 done, 1 failed, 2 usage or a damaged input file, 3 no bus;
with --private-bus, that of the command (127: it could not be started).)";

struct Texts
{
    Texts() = default;
    Texts(const Texts&) = delete;
    Texts& operator=(const Texts&) = delete;
    ~Texts()
    {
        for (char* text : {catalogue, state, scenario, replay, makePackage, id, version,
                           architecture, developer, subgroup}) {
            g_free(text);
        }
        g_strfreev(rest);
    }

    char* catalogue = nullptr;
    char* state = nullptr;
    char* scenario = nullptr;
    char* replay = nullptr;
    char* makePackage = nullptr;
    char* id = nullptr;
    char* version = nullptr;
    char* architecture = nullptr;
    char* developer = nullptr;
    char* subgroup = nullptr;
    char** rest = nullptr;
};

struct Numbers
{
    int steps = 3;
    int stepMilliseconds = 200;
    int packages = 0;
    int dictionaryEntries = 0;
    double speed = 1.0;
    gint64 payload = 0;
    gboolean privateBus = FALSE;
};

std::string Text(const char* text)
{
    return text != nullptr ? text : "";
}

unsigned NotNegative(const char* option, int number)
{
    if (number < 0) {
        throw UsageError(std::string(option) + " takes a number that is not negative");
    }
    return static_cast<unsigned>(number);
}

void Parse(int argc, char** argv, Texts& texts, Numbers& numbers)
{
    const GOptionEntry entries[] = {
        {"catalogue", 0, 0, G_OPTION_ARG_FILENAME, &texts.catalogue,
         "What the daemon reports at first", "FILE"},
        {"state", 0, 0, G_OPTION_ARG_FILENAME, &texts.state, "Keep what happens across restarts",
         "DIR"},
        {"packages", 0, 0, G_OPTION_ARG_INT, &numbers.packages, "Make up a catalogue of N packages",
         "N"},
        {"dictionary-entries", 0, 0, G_OPTION_ARG_INT, &numbers.dictionaryEntries,
         "with D dictionary entries in each package", "D"},
        {"steps", 0, 0, G_OPTION_ARG_INT, &numbers.steps,
         "Status steps of an operation before its end (3)", "N"},
        {"step-ms", 0, 0, G_OPTION_ARG_INT, &numbers.stepMilliseconds,
         "Milliseconds between the steps (200)", "N"},
        {"scenario", 0, 0, G_OPTION_ARG_FILENAME, &texts.scenario,
         "Carry out the verbs of the control interface in the file", "FILE"},
        {"replay", 0, 0, G_OPTION_ARG_FILENAME, &texts.replay,
         "Play back a recording, from the first GetAllProperties on", "FILE"},
        {"speed", 0, 0, G_OPTION_ARG_DOUBLE, &numbers.speed, "Play back X times as fast (1)", "X"},
        {"private-bus", 0, 0, G_OPTION_ARG_NONE, &numbers.privateBus,
         "Serve on a new bus, run the command after -- on it, and end with its exit status",
         nullptr},
        {"make-package", 0, 0, G_OPTION_ARG_FILENAME, &texts.makePackage,
         "Write a package file and exit", "FILE"},
        {"id", 0, 0, G_OPTION_ARG_STRING, &texts.id, "ID of the package to write", "ID"},
        {"version", 0, 0, G_OPTION_ARG_STRING, &texts.version, "its version", "VERSION"},
        {"architecture", 0, 0, G_OPTION_ARG_STRING, &texts.architecture,
         "its architecture (noarch)", "NAME"},
        {"developer", 0, 0, G_OPTION_ARG_STRING, &texts.developer,
         "ID of its developer certificate", "ID"},
        {"subgroup", 0, 0, G_OPTION_ARG_STRING, &texts.subgroup,
         "subgroup of its developer certificate", "NAME"},
        {"payload", 0, 0, G_OPTION_ARG_INT64, &numbers.payload, "its payload size in bytes", "N"},
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_STRING_ARRAY, &texts.rest, nullptr, "[-- COMMAND]"},
        {}};
    const std::unique_ptr<GOptionContext, Releaser<g_option_context_free>> context(
        g_option_context_new(nullptr));
    g_option_context_set_summary(context.get(),
                                 "Stands in for the application-store daemon on the session bus.");
    g_option_context_set_description(context.get(), description);
    g_option_context_add_main_entries(context.get(), entries, nullptr);
    // Without this, an option of the command before "--" would be taken for one of ours.
    g_option_context_set_strict_posix(context.get(), TRUE);
    ErrorSlot error;
    if (g_option_context_parse(context.get(), &argc, &argv, &error) == FALSE) {
        throw UsageError(error.Message());
    }
}

std::vector<std::string> Command(char** rest)
{
    std::vector<std::string> command;
    for (char** text = rest; text != nullptr && *text != nullptr; ++text) {
        command.emplace_back(*text);
    }
    // The option parser leaves the separator where it is the first of the rest.
    if (!command.empty() && command.front() == "--") {
        command.erase(command.begin());
    }
    return command;
}

PackageFile PackageToWrite(const Texts& texts, const Numbers& numbers)
{
    if (texts.id == nullptr || texts.version == nullptr) {
        throw UsageError("--make-package needs --id and --version");
    }
    if (numbers.payload < 0) {
        throw UsageError("--payload takes a number that is not negative");
    }
    return {texts.id,
            texts.version,
            texts.architecture != nullptr ? texts.architecture : "noarch",
            Text(texts.developer),
            Text(texts.subgroup),
            static_cast<std::uint64_t>(numbers.payload)};
}

void Check(const Options& options)
{
    if (options.privateBus && options.command.empty()) {
        throw UsageError("--private-bus needs a command: --private-bus -- COMMAND");
    }
    if (!options.privateBus && !options.command.empty()) {
        throw UsageError("unexpected argument: " + options.command.front());
    }
    if (options.packages != 0 && !options.catalogue.empty()) {
        throw UsageError("--packages and --catalogue exclude each other");
    }
    if (!options.replay.empty() &&
        (!options.catalogue.empty() || options.packages != 0 || !options.state.empty())) {
        throw UsageError("--replay brings its own catalogue and keeps no state");
    }
    if (!(options.speed > 0.0 && options.speed < 1e9)) {
        throw UsageError("--speed takes a number greater than 0");
    }
}

} // namespace

Options ParseOptions(int argc, char** argv)
{
    Texts texts;
    Numbers numbers;
    Parse(argc, argv, texts, numbers);

    Options options;
    options.pace = {NotNegative("--steps", numbers.steps),
                    NotNegative("--step-ms", numbers.stepMilliseconds)};
    options.catalogue = Text(texts.catalogue);
    options.state = Text(texts.state);
    options.scenario = Text(texts.scenario);
    options.replay = Text(texts.replay);
    options.speed = numbers.speed;
    options.packages = NotNegative("--packages", numbers.packages);
    options.dictionaryEntries = NotNegative("--dictionary-entries", numbers.dictionaryEntries);
    options.privateBus = numbers.privateBus != FALSE;
    options.command = Command(texts.rest);
    options.makePackage = Text(texts.makePackage);
    if (!options.makePackage.empty()) {
        options.package = PackageToWrite(texts, numbers);
    }
    Check(options);
    return options;
}

} // namespace Simulator
