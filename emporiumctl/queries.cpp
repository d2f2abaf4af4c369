// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/json.h"
#include "emporiumctl/names.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace EmporiumCtl {

using Emporium::DaemonConnection;
using Emporium::Operation;
using Emporium::Package;

namespace {

Row RowOf(const Package& package)
{
    return {package.GetID(), package.GetVersion(), package.GetDeveloperCertificateID(),
            package.GetDeveloperCertificateSubgroup()};
}

Row RowOf(const Operation& operation)
{
    const bool failed = operation.GetStatus() == Common::OperationStatus::Failed;
    return {operation.GetUUID(), NameOf(operation.GetType()), operation.GetPackageID(),
            NameOf(operation.GetStatus()), failed ? Describe(operation.GetErrorCode()) : ""};
}

/// Both forms are sorted alike.
template <typename Item>
std::vector<Item> Sorted(std::vector<Item> items, const std::vector<std::string>& columns,
                         const std::optional<std::string>& sortedBy)
{
    if (!sortedBy) {
        return items;
    }
    const auto column = static_cast<std::size_t>(
        std::find(columns.begin(), columns.end(), *sortedBy) - columns.begin());
    // Items with the same text stay in the daemon's order.
    std::vector<std::pair<std::string, std::size_t>> order;
    order.reserve(items.size());
    for (const Item& item : items) {
        order.emplace_back(RowOf(item)[column], order.size());
    }
    std::sort(order.begin(), order.end());
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const auto& [text, place] : order) {
        sorted.push_back(items[place]);
    }
    return sorted;
}

template <typename Item>
void Print(Output& out, const Row& heading, const std::vector<Item>& items,
           const TableLayout& layout)
{
    if (out.Json()) {
        out.Document(ToJson(items));
        return;
    }
    std::vector<Row> rows;
    rows.reserve(items.size());
    for (const Item& item : items) {
        rows.push_back(RowOf(item));
    }
    PrintTable(out, heading, rows, layout);
}

std::vector<Operation> Select(const DaemonConnection& connection, WhichOperations which)
{
    std::vector<Operation> operations;
    if (which != WhichOperations::Active) {
        operations = connection.GetCompletedOperations();
    }
    if (which != WhichOperations::Completed) {
        const std::vector<Operation> active = connection.GetActiveOperations();
        operations.insert(operations.end(), active.begin(), active.end());
    }
    return LatestOfEachUUID(operations);
}

} // namespace

ExitStatus List(Session& session, Output& out, const ListOptions& options)
{
    const auto wanted = [&](const Package& package) {
        return (!options.developer || package.GetDeveloperCertificateID() == *options.developer) &&
               (!options.subgroup ||
                package.GetDeveloperCertificateSubgroup() == *options.subgroup) &&
               (!options.filter || package.GetID().find(*options.filter) != std::string::npos);
    };
    Print(out, {"ID", "VERSION", "DEVELOPER", "SUBGROUP"},
          Sorted(session.Connection().GetPackageList(wanted), packageColumns,
                 options.layout.sortedBy),
          options.layout);
    return ExitStatus::Done;
}

ExitStatus Info(Session& session, Output& out, const std::string& id)
{
    const auto package = session.Connection().GetPackage(id);
    if (!package) {
        return Report(out, FailureOf(ExitStatus::Failed, package.GetError()));
    }
    if (out.Json()) {
        out.Document(ToJson(package.Get()));
        return ExitStatus::Done;
    }
    out.Line("ID:        " + package->GetID());
    out.Line("Version:   " + package->GetVersion());
    out.Line("Developer: " + package->GetDeveloperCertificateID());
    out.Line("Subgroup:  " + package->GetDeveloperCertificateSubgroup());
    return ExitStatus::Done;
}

ExitStatus Operations(Session& session, Output& out, WhichOperations which,
                      const TableLayout& layout)
{
    Print(out, {"UUID", "TYPE", "PACKAGE", "STATUS", "ERROR"},
          Sorted(Select(session.Connection(), which), operationColumns, layout.sortedBy), layout);
    return ExitStatus::Done;
}

} // namespace EmporiumCtl
