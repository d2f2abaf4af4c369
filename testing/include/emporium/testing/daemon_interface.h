// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/error.h>
#include <common/operation_status.h>
#include <common/operation_type.h>

#include <string>

namespace Emporium::Testing {

/// The methods of the daemon.
enum class Method
{
    GetAllProperties, ///< What every new connection of the library calls.
    Install,          ///< Installs and upgrades. Its argument is the path of the package file.
    Remove,           ///< Its argument is the package's ID.
    Start,            ///< Its argument is the package's ID.
    Restart,          ///< Its argument is the package's ID.
};

/// The signals of the daemon.
enum class Signal
{
    PackageInstalled,
    PackageUpgraded,
    PackageRemoved,
    OperationStatusChanged,
};

/// What GetAllProperties returns.
enum class Property
{
    Architecture,        ///< s
    VeyraVersion,        ///< s
    Packages,            ///< a(ssssa{sv})
    Operations,          ///< a(ssiii)
    CompletedOperations, ///< a(ssiii)
};

/// A package as the daemon reports it, with an empty dictionary.
struct PackageRecord
{
    std::string id = {};
    std::string version = "1.0";
    std::string developerCertificateSubgroup = {};
    std::string developerCertificateID = {};
};

/// An operation as the daemon reports it. The daemon may send numbers without an enumerator: cast them.
struct OperationRecord
{
    std::string uuid = {};
    std::string packageID = {};
    Common::OperationType type = Common::OperationType::Install;
    Common::OperationStatus status = Common::OperationStatus::None;
    Common::ErrorCode error = Common::ErrorCode::None;
};

/// Return the body of a message that has the record, or the text, as its one argument. A body is
/// written in GVariant text format; these functions write it with the right types and quoting.
///
///     simulator.EmitSignal(Signal::PackageInstalled, Body(PackageRecord{"org.example.clock", "1.0"}));
///
/// @throws Error if a text is not UTF-8, which D-Bus cannot carry
std::string Body(const PackageRecord& package);
std::string Body(const OperationRecord& operation);
std::string Body(const std::string& text);

} // namespace Emporium::Testing
