// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/json.h"
#include "emporiumctl/names.h"
#include "text/suggestion.h"

#include <glib.h>

namespace EmporiumCtl {
namespace {

bool SameLetters(const std::string& a, const std::string& b)
{
    return g_ascii_strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool Matches(const KnownError& error, const std::string& wanted)
{
    return wanted == std::to_string(error.code) || SameLetters(wanted, error.name) ||
           SameLetters(wanted, error.busName);
}

Json ToJson(const KnownError& error)
{
    return {{"code", error.code},
            {"name", error.name},
            {"message", error.message},
            {"bus_name", error.busName}};
}

ExitStatus ReportUnknown(Output& out, const std::string& wanted)
{
    std::vector<std::string> names;
    for (const KnownError& error : KnownErrors()) {
        names.push_back(error.name);
    }
    return Report(out, FailureOf(ExitStatus::Failed, "there is no error " + Shown(wanted) +
                                                         Text::DidYouMean(wanted, names)));
}

} // namespace

ExitStatus Errors(Output& out, const std::optional<std::string>& wanted)
{
    std::vector<Row> rows;
    Json list = Json::array();
    for (const KnownError& error : KnownErrors()) {
        if (!wanted || Matches(error, *wanted)) {
            rows.push_back({std::to_string(error.code), error.name, error.message, error.busName});
            list.push_back(ToJson(error));
        }
    }
    if (rows.empty()) {
        return ReportUnknown(out, wanted.value_or(""));
    }
    if (out.Json()) {
        out.Document(list);
    } else if (!wanted) {
        PrintTable(out, {"CODE", "NAME", "MESSAGE", "BUS NAME"}, rows, {});
    } else {
        out.Line("Code:     " + rows.front()[0]);
        out.Line("Name:     " + rows.front()[1]);
        out.Line("Message:  " + rows.front()[2]);
        out.Line("Bus name: " + rows.front()[3]);
    }
    return ExitStatus::Done;
}

} // namespace EmporiumCtl
