// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/options.h"

#include <array>
#include <stdexcept>

namespace Simulator {
namespace {

constexpr const char* summary =
    "Stands in for the application-store daemon on the session bus. Prints \"ready\" when it can "
    "be\n"
    "called. What it is told to do wrong, it is told at the object path\n"
    "/org/velmora/Emporium/Simulator; `gdbus introspect` shows how.";

constexpr const char* examples =
    "Examples:\n"
    "  emporium-simulator --private-bus -- emporiumctl list\n"
    "      Runs a command on a bus of its own, and ends with the command's exit status.\n"
    "  emporium-simulator --make-package app.pkg --id org.example.app --version 1.0\n"
    "      Writes a package file that the simulator can install.\n"
    "  emporium-simulator --packages 10000 --dictionary-entries 4\n"
    "      Serves a large catalogue.";

/// What GLib writes the options into.
struct Raw
{
    int steps = 3;
    int stepMilliseconds = 200;
    int packages = -1;
    int dictionaryEntries = 0;
    gboolean privateBus = FALSE;
    char* makePackage = nullptr;
    char* id = nullptr;
    char* version = nullptr;
    char* architecture = nullptr;
    char* developer = nullptr;
    char* subgroup = nullptr;
    int payload = 0;
    char** rest = nullptr;
};

std::string Take(char* text, const char* otherwise)
{
    const Owned<char> owned(text);
    return text != nullptr ? text : otherwise;
}

unsigned NotNegative(int number, const char* option)
{
    if (number < 0) {
        throw std::invalid_argument(std::string(option) + " takes a number that is not negative");
    }
    return static_cast<unsigned>(number);
}

void Parse(int argc, char** argv, Raw& raw)
{
    const std::array<GOptionEntry, 14> entries{{
        {"steps", 0, 0, G_OPTION_ARG_INT, &raw.steps,
         "Status changes of an operation before its end (3)", "N"},
        {"step-ms", 0, 0, G_OPTION_ARG_INT, &raw.stepMilliseconds,
         "Time before each of them, in milliseconds (200)", "N"},
        {"packages", 0, 0, G_OPTION_ARG_INT, &raw.packages,
         "Make up this many installed packages instead of the built-in ones", "N"},
        {"dictionary-entries", 0, 0, G_OPTION_ARG_INT, &raw.dictionaryEntries,
         "... with this many dictionary entries each (0)", "N"},
        {"private-bus", 0, 0, G_OPTION_ARG_NONE, &raw.privateBus,
         "Start a bus of its own, run COMMAND on it, and end with it", nullptr},
        {"make-package", 0, 0, G_OPTION_ARG_FILENAME, &raw.makePackage,
         "Write a package file and end", "FILE"},
        {"id", 0, 0, G_OPTION_ARG_STRING, &raw.id, "... of the package with this ID", "ID"},
        {"version", 0, 0, G_OPTION_ARG_STRING, &raw.version, "... its version (1.0)", "VERSION"},
        {"architecture", 0, 0, G_OPTION_ARG_STRING, &raw.architecture,
         "... its architecture, or noarch (noarch)", "NAME"},
        {"developer", 0, 0, G_OPTION_ARG_STRING, &raw.developer,
         "... its developer's certificate ID (example-developer)", "ID"},
        {"subgroup", 0, 0, G_OPTION_ARG_STRING, &raw.subgroup,
         "... the certificate's subgroup (regular)", "NAME"},
        {"payload", 0, 0, G_OPTION_ARG_INT, &raw.payload, "... its size in bytes (0)", "N"},
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &raw.rest, nullptr,
         "[-- COMMAND...]"},
        {},
    }};
    const Owned<GOptionContext> context(g_option_context_new(nullptr));
    g_option_context_set_summary(context.get(), summary);
    g_option_context_set_description(context.get(), examples);
    g_option_context_add_main_entries(context.get(), entries.data(), nullptr);
    std::string failure;
    if (!g_option_context_parse(context.get(), &argc, &argv, Failure(failure))) {
        throw std::invalid_argument(failure.empty() ? "bad command line" : failure);
    }
}

} // namespace

Options ParseOptions(int argc, char** argv)
{
    Raw raw;
    Parse(argc, argv, raw);
    Options options;
    const Owned<char*> rest(raw.rest);
    for (char** word = raw.rest; word != nullptr && *word != nullptr; ++word) {
        options.command.emplace_back(*word);
    }
    options.packagePath = Take(raw.makePackage, "");
    options.package = {Take(raw.id, ""),
                       Take(raw.version, "1.0"),
                       Take(raw.architecture, "noarch"),
                       Take(raw.developer, "example-developer"),
                       Take(raw.subgroup, "regular"),
                       raw.payload};
    options.pace = {NotNegative(raw.steps, "--steps"),
                    NotNegative(raw.stepMilliseconds, "--step-ms")};
    options.dictionaryEntries = NotNegative(raw.dictionaryEntries, "--dictionary-entries");
    if (raw.packages != -1) {
        options.madeUpPackages = NotNegative(raw.packages, "--packages");
    }
    options.privateBus = raw.privateBus != FALSE;
    if (options.privateBus == options.command.empty()) {
        throw std::invalid_argument(options.privateBus
                                        ? "--private-bus wants a command: -- COMMAND..."
                                        : "a command is run with --private-bus only");
    }
    if (!options.packagePath.empty() && options.package.id.empty()) {
        throw std::invalid_argument("--make-package wants an --id");
    }
    return options;
}

} // namespace Simulator
