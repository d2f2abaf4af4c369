// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"

#include "emporiumctl/events.h"
#include "emporiumctl/json.h"
#include "emporiumctl/output.h"
#include "emporiumctl/waiting.h"

#include <algorithm>
#include <filesystem>
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
    std::cerr << "emporiumctl: " << Printable(message) << '\n';
    return ExitStatus::Failed;
}

Row RowOf(const Operation& operation)
{
    const bool failed = operation.GetStatus() == Common::OperationStatus::Failed;
    return {operation.GetUUID(), NameOf(operation.GetType()), operation.GetPackageID(),
            NameOf(operation.GetStatus()), failed ? Describe(operation.GetErrorCode()) : ""};
}

/// Keeps the last operation of each UUID: cached operations come before the daemon's own, which are
/// newer.
std::vector<Operation> LatestOfEachUUID(const std::vector<Operation>& operations)
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
    return LatestOfEachUUID(operations);
}

/// Paths are made absolute: the daemon has another working directory.
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

ExitStatus List(const DaemonConnection& connection, const Output& out, const ListOptions& options)
{
    std::vector<Row> rows = {{"ID", "VERSION", "DEVELOPER", "SUBGROUP"}};
    const auto wanted = [&](const Package& package) {
        return (!options.developer || package.GetDeveloperCertificateID() == *options.developer) &&
               (!options.subgroup ||
                package.GetDeveloperCertificateSubgroup() == *options.subgroup) &&
               (!options.filter || package.GetID().find(*options.filter) != std::string::npos);
    };
    const std::vector<Package> packages = connection.GetPackageList(wanted);
    if (out.json) {
        out.stream << Line(ToJson(packages)) << '\n';
        return ExitStatus::Done;
    }
    for (const Package& package : packages) {
        rows.push_back({package.GetID(), package.GetVersion(), package.GetDeveloperCertificateID(),
                        package.GetDeveloperCertificateSubgroup()});
    }
    PrintTable(out, rows);
    return ExitStatus::Done;
}

ExitStatus Info(const DaemonConnection& connection, const Output& out, const std::string& id)
{
    const auto package = connection.GetPackage(id);
    if (!package) {
        return Complain(package.GetError());
    }
    if (out.json) {
        out.stream << Line(ToJson(package.Get())) << '\n';
        return ExitStatus::Done;
    }
    out.stream << "ID:        " << Printable(package->GetID()) << '\n'
               << "Version:   " << Printable(package->GetVersion()) << '\n'
               << "Developer: " << Printable(package->GetDeveloperCertificateID()) << '\n'
               << "Subgroup:  " << Printable(package->GetDeveloperCertificateSubgroup()) << '\n';
    return ExitStatus::Done;
}

ExitStatus Operations(const DaemonConnection& connection, const Output& out, WhichOperations which)
{
    std::vector<Row> rows = {{"UUID", "TYPE", "PACKAGE", "STATUS", "ERROR"}};
    const std::vector<Operation> operations = Select(connection, which);
    if (out.json) {
        out.stream << Line(ToJson(operations)) << '\n';
        return ExitStatus::Done;
    }
    for (const Operation& operation : operations) {
        rows.push_back(RowOf(operation));
    }
    PrintTable(out, rows);
    return ExitStatus::Done;
}

ExitStatus RunOperations(const DaemonConnection& connection, const Output& out,
                         Common::OperationType type, const std::vector<std::string>& targets,
                         const WaitOptions& options)
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
        if (out.json) {
            out.stream << Line(Json(uuids)) << '\n';
            return created;
        }
        for (const std::string& uuid : uuids) {
            out.stream << Printable(uuid) << '\n';
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

ExitStatus Watch(const DaemonConnection& connection, const Output& out)
{
    const EventListener listener(
        connection,
        [&](const char* name, const Package& package) {
            if (out.json) {
                out.stream << Line(EventToJson(name, package)) << '\n' << std::flush;
            } else {
                out.stream << name << ' ' << Printable(package.GetID()) << ' '
                           << Printable(package.GetVersion()) << '\n'
                           << std::flush;
            }
        },
        [&](const char* name, const Operation& operation) {
            if (out.json) {
                out.stream << Line(EventToJson(name, operation)) << '\n' << std::flush;
                return;
            }
            out.stream << name;
            for (const std::string& cell : RowOf(operation)) {
                out.stream << (cell.empty() ? "" : " ") << Printable(cell);
            }
            out.stream << '\n' << std::flush;
        });
    const bool never = false;
    MainLoop().RunUntil(never, 0);
    return ExitStatus::Done;
}

ExitStatus Status(const DaemonConnection& connection, const Output& out)
{
    const Json status = {
        {"architecture", connection.GetArchitecture()},
        {"version", connection.GetVeyraVersion()},
        {"packages", connection.GetPackageList().size()},
        {"active", connection.GetActiveOperations().size()},
        {"completed", LatestOfEachUUID(connection.GetCompletedOperations()).size()}};
    if (out.json) {
        out.stream << Line(status) << '\n';
        return ExitStatus::Done;
    }
    out.stream << "The daemon answers.\n";
    for (const auto& [name, value] : status.items()) {
        const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
        out.stream << name << ": " << Printable(text) << '\n';
    }
    return ExitStatus::Done;
}

ExitStatus Errors(const Output& out, const std::string& wanted)
{
    std::vector<Row> rows = {{"CODE", "NAME", "MESSAGE", "BUS NAME"}};
    Json list = Json::array();
    constexpr int lastCode = static_cast<int>(Common::ErrorCode::DisallowedDeveloperSubgroup);
    for (int code = 0; code <= lastCode; ++code) {
        const Common::ErrorCodeHelper helper(code);
        const std::string& name = helper.errorCodeAsString();
        const std::string& busName = helper.errorCodeAsDBusErrorString();
        // An unassigned number has the names of ErrorCode::Internal.
        const bool assigned =
            static_cast<int>(Common::ErrorCodeHelper(busName).errorCode()) == code;
        const std::string number = std::to_string(code);
        if (assigned &&
            (wanted.empty() || wanted == number || wanted == name || wanted == busName)) {
            const std::string message = Common::ErrorCodeCategroty().message(code);
            rows.push_back({number, name, message, busName});
            list.push_back(
                {{"code", code}, {"name", name}, {"message", message}, {"bus_name", busName}});
        }
    }
    if (list.empty()) {
        return Complain("there is no error " + wanted);
    }
    if (out.json) {
        out.stream << Line(list) << '\n';
    } else {
        PrintTable(out, rows);
    }
    return ExitStatus::Done;
}

} // namespace EmporiumCtl
