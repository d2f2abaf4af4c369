// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/command_line.h"
#include "emporiumctl/interruption.h"
#include "emporiumctl/log_lines.h"
#include "emporiumctl/output.h"
#include "emporiumctl/remote_bus.h"
#include "emporiumctl/session.h"

#include <clocale>
#include <exception>

namespace {

using namespace EmporiumCtl;

/// A command whose output could not be written has failed, whatever it has done.
ExitStatus Finish(Output& out, ExitStatus status)
{
    if (out.Finish()) {
        return status;
    }
    Complain("cannot write to standard output: " + out.Error());
    return ExitStatus::Failed;
}

ExitStatus PrintText(const std::string& text)
{
    DescriptorWriter writer(1);
    writer.Append(text);
    if (text.empty() || text.back() != '\n') {
        writer.Append("\n");
    }
    if (writer.Finish()) {
        return ExitStatus::Done;
    }
    Complain("cannot write to standard output: " + writer.Error());
    return ExitStatus::Failed;
}

ExitStatus Run(const CommandLine& commandLine, Interruption& interruption)
{
    const CommonOptions& options = commandLine.Common();
    const std::chrono::seconds timeout(options.timeout.value_or(0));
    if (timeout > timeout.zero()) {
        interruption.SetTimeout(timeout);
    }
    if (options.verbose) {
        LogLines::Get().SetVerbose();
    }
    if (!options.host.empty()) {
        UseBusOf(options.host);
    }
    Output out(options.style);
    ExitStatus status = ExitStatus::Failed;
    try {
        Session session(out, interruption);
        status = commandLine.Selected()(session, out);
    } catch (const std::exception& error) {
        Report(out, FailureOf(ExitStatus::Failed, error.what()));
    }
    return Finish(out, status);
}

ExitStatus Main(const std::vector<std::string>& arguments)
{
    OccupyStandardDescriptors();
    LogLines::Get();
    Interruption interruption;
    CommandLine commandLine;
    try {
        if (const auto text = commandLine.Parse(arguments)) {
            return PrintText(*text);
        }
    } catch (const UsageError& error) {
        Complain(std::string(error.what()) + " (see emporiumctl --help)");
        return ExitStatus::Usage;
    }
    return Run(commandLine, interruption);
}

} // namespace

int main(int argc, char** argv)
{
    // Messages in the language of the user, but numbers as in every file and option.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    try {
        return static_cast<int>(Main({argv + 1, argv + argc}));
    } catch (const std::exception& error) {
        Complain(error.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}
