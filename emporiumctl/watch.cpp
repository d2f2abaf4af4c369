// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/events.h"
#include "emporiumctl/json.h"
#include "emporiumctl/names.h"
#include "emporiumctl/now.h"

#include <algorithm>

namespace EmporiumCtl {

using Emporium::Operation;
using Emporium::Package;

namespace {

bool Contains(const std::vector<std::string>& texts, const std::string& text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool IsWanted(const Event& event, const WatchOptions& options)
{
    if (!options.events.empty() && !Contains(options.events, event.name)) {
        return false;
    }
    const std::string* const package = event.PackageID();
    return options.packages.empty() || (package != nullptr && Contains(options.packages, *package));
}

std::string Text(std::monostate /*content*/)
{
    return "";
}

std::string Text(const Package& package)
{
    return ' ' + package.GetID() + ' ' + package.GetVersion();
}

std::string Text(const Operation& operation)
{
    std::string text = ' ' + operation.GetUUID() + ' ' + NameOf(operation.GetType()) + ' ' +
                       operation.GetPackageID() + ' ' + NameOf(operation.GetStatus());
    if (operation.GetStatus() == Common::OperationStatus::Failed) {
        text += ' ' + Describe(operation.GetErrorCode());
    }
    return text;
}

std::string Text(const Event::Appeared& appeared)
{
    const auto* const failure = std::get_if<Failure>(&appeared);
    return failure != nullptr ? ' ' + failure->error.Text() : "";
}

void Print(Output& out, const Event& event, bool timestamp)
{
    if (out.Json()) {
        Json document = ToJson(event);
        if (timestamp) {
            document["time"] = Now();
        }
        out.Document(document);
    } else {
        const auto text = [](const auto& content) { return Text(content); };
        out.Line((timestamp ? Now() + ' ' : "") + event.name + std::visit(text, event.content));
    }
    out.Flush();
}

} // namespace

ExitStatus Watch(Session& session, Output& out, const WatchOptions& options)
{
    EventStream events(session, [&](const Event& event) {
        if (IsWanted(event, options)) {
            Print(out, event, options.timestamps);
        }
    });
    const auto failure = events.Run([&] { return out.Good(); });
    return failure ? Report(out, *failure) : ExitStatus::Done;
}

} // namespace EmporiumCtl
