// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"

#include "emporiumctl/output.h"
#include "emporiumctl/waiting.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <unordered_set>

namespace EmporiumCtl {

using Emporium::DaemonConnection;
using Emporium::Operation;
using Emporium::Package;

namespace {

using Row = std::vector<std::string>;

ExitStatus Complain(const std::string& message)
{
    std::cerr << "emporiumctl: " << Printable(message) << std::endl;
    return ExitStatus::Failed;
}

Row RowOf(const Operation& operation)
{
    const bool failed = operation.GetStatus() == Common::OperationStatus::Failed;
    return {operation.GetUUID(), NameOf(operation.GetType()), operation.GetPackageID(),
            NameOf(operation.GetStatus()), failed ? Describe(operation.GetErrorCode()) : ""};
}

/// Cached operations come before the daemon's own; of two with the same UUID the daemon's, which is
/// the later one, is the one to show.
std::vector<Operation> EachOnce(const std::vector<Operation>& operations)
{
    std::unordered_set<std::string> seen;
    std::vector<Operation> once;
    for (auto operation = operations.rbegin(); operation != operations.rend(); ++operation) {
        if (seen.insert(operation->GetUUID()).second) {
            once.push_back(*operation);
        }
    }
    std::reverse(once.begin(), once.end());
    return once;
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
    return EachOnce(operations);
}

/// The daemon has a working directory of its own, so it gets whole paths.
Emporium::OperationRequest Request(Common::OperationType type, const std::string& target)
{
    Emporium::OperationRequest::Builder builder;
    builder.SetOperationType(type);
    if (type == Common::OperationType::Remove) {
        builder.SetPackageID(target);
    } else {
        builder.SetPackagePath(std::filesystem::absolute(target).string());
    }
    return builder.Build();
}

ExitStatus StatusOf(const Emporium::Result<void>& result)
{
    return result ? ExitStatus::Done : Complain(result.GetError());
}

} // namespace

ExitStatus List(const DaemonConnection& connection, std::ostream& out, const ListOptions& options)
{
    std::vector<Row> rows = {{"ID", "VERSION", "DEVELOPER", "SUBGROUP"}};
    const auto wanted = [&](const Package& package) {
        return (!options.developer || package.GetDeveloperCertificateID() == *options.developer) &&
               (!options.subgroup ||
                package.GetDeveloperCertificateSubgroup() == *options.subgroup) &&
               (!options.filter || package.GetID().find(*options.filter) != std::string::npos);
    };
    for (const Package& package : connection.GetPackageList(wanted)) {
        rows.push_back({package.GetID(), package.GetVersion(), package.GetDeveloperCertificateID(),
                        package.GetDeveloperCertificateSubgroup()});
    }
    PrintTable(out, rows);
    return ExitStatus::Done;
}

ExitStatus Info(const DaemonConnection& connection, std::ostream& out, const std::string& id)
{
    const auto package = connection.GetPackage(id);
    if (!package) {
        return Complain(package.GetError());
    }
    out << "ID:        " << Printable(package->GetID()) << '\n'
        << "Version:   " << Printable(package->GetVersion()) << '\n'
        << "Developer: " << Printable(package->GetDeveloperCertificateID()) << '\n'
        << "Subgroup:  " << Printable(package->GetDeveloperCertificateSubgroup()) << '\n';
    return ExitStatus::Done;
}

ExitStatus Operations(const DaemonConnection& connection, std::ostream& out, WhichOperations which)
{
    std::vector<Row> rows = {{"UUID", "TYPE", "PACKAGE", "STATUS", "ERROR"}};
    for (const Operation& operation : Select(connection, which)) {
        rows.push_back(RowOf(operation));
    }
    PrintTable(out, rows);
    return ExitStatus::Done;
}

ExitStatus Run(const DaemonConnection& connection, std::ostream& out, Common::OperationType type,
               const std::vector<std::string>& targets, const WaitOptions& options)
{
    OperationFollower follower(connection, out);
    std::vector<std::string> uuids;
    ExitStatus created = ExitStatus::Done;
    for (const std::string& target : targets) {
        const auto uuid = connection.CreateOperation(Request(type, target));
        if (uuid) {
            uuids.push_back(uuid.Get());
        } else {
            created = Complain(uuid.GetError());
        }
    }
    if (!options.wait) {
        for (const std::string& uuid : uuids) {
            out << Printable(uuid) << '\n';
        }
        return created;
    }
    const ExitStatus ended = follower.Wait(uuids, options.limit);
    return ended == ExitStatus::Done ? created : ended;
}

ExitStatus Start(const DaemonConnection& connection, const std::string& id)
{
    return StatusOf(connection.Start(id));
}

ExitStatus Restart(const DaemonConnection& connection, const std::string& id)
{
    return StatusOf(connection.Restart(id));
}

ExitStatus Watch(const DaemonConnection& connection, std::ostream& out)
{
    const auto packageEvent = [&](Emporium::EventType type, const char* name) {
        return connection.SubscribeToEvent(
            type, std::function<void(const Package&)>([&out, name](const Package& package) {
                out << name << ' ' << Printable(package.GetID()) << ' '
                    << Printable(package.GetVersion()) << std::endl;
            }));
    };
    const auto installed = packageEvent(Emporium::EventType::PackageInstalled, "installed");
    const auto upgraded = packageEvent(Emporium::EventType::PackageUpgraded, "upgraded");
    const auto removed = packageEvent(Emporium::EventType::PackageRemoved, "removed");
    const auto status = connection.SubscribeToEvent(
        Emporium::EventType::OperationStatusChanged,
        std::function<void(const Operation&)>([&out](const Operation& operation) {
            out << "operation";
            for (const std::string& cell : RowOf(operation)) {
                out << (cell.empty() ? "" : " ") << Printable(cell);
            }
            out << std::endl;
        }));
    const bool never = false;
    MainLoop().RunUntil(never, 0);
    return ExitStatus::Done;
}

} // namespace EmporiumCtl
