// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The names and signatures of the daemon's bus interface. data/org.velmora.Emporium.xml publishes
/// the same; a test compares the two in both directions. Constants only: programs that do not link
/// the library include this as well.
namespace Emporium::Contract {

inline constexpr const char* busName = "org.velmora.Emporium";
inline constexpr const char* objectPath = "/org/velmora/Emporium";
inline constexpr const char* interfaceName = "org.velmora.Emporium";

// The contents of the parentheses in the signatures of the two records.
inline constexpr const char* operationFields = "ssiii";
inline constexpr const char* packageFields = "ssssa{sv}";

inline constexpr const char* packageRecord = "(ssssa{sv})";
inline constexpr const char* operationRecord = "(ssiii)";
inline constexpr const char* packageRecordArray = "a(ssssa{sv})";
inline constexpr const char* operationRecordArray = "a(ssiii)";
inline constexpr const char* dictionaryEntry = "{sv}";
inline constexpr const char* dictionaryEntryFields = "sv";
inline constexpr const char* dictionary = "a{sv}";
inline constexpr const char* string = "s";

namespace Method {
inline constexpr const char* getAllProperties = "GetAllProperties";
inline constexpr const char* install = "Install";
inline constexpr const char* remove = "Remove";
inline constexpr const char* start = "Start";
inline constexpr const char* restart = "Restart";
} // namespace Method

namespace Signal {
inline constexpr const char* operationStatusChanged = "OperationStatusChanged";
inline constexpr const char* packageInstalled = "PackageInstalled";
inline constexpr const char* packageUpgraded = "PackageUpgraded";
inline constexpr const char* packageRemoved = "PackageRemoved";
} // namespace Signal

// In the order in which a reply is checked and decoded.
namespace Property {
inline constexpr const char* architecture = "Architecture";
inline constexpr const char* veyraVersion = "VeyraVersion";
inline constexpr const char* packages = "Packages";
inline constexpr const char* operations = "Operations";
inline constexpr const char* completedOperations = "CompletedOperations";
} // namespace Property

// The whole interface with its signatures, for the comparison with the XML.

struct MethodShape
{
    const char* name;
    const char* arguments;
    const char* reply;
};

inline constexpr MethodShape allMethods[] = {
    {Method::getAllProperties, "", dictionary},
    {Method::install, string, operationRecord},
    {Method::remove, string, operationRecord},
    {Method::start, string, ""},
    {Method::restart, string, ""},
};

struct SignalShape
{
    const char* name;
    const char* arguments;
};

inline constexpr SignalShape allSignals[] = {
    {Signal::operationStatusChanged, operationRecord},
    {Signal::packageInstalled, packageRecord},
    {Signal::packageUpgraded, packageRecord},
    {Signal::packageRemoved, string},
};

struct PropertyShape
{
    const char* name;
    const char* signature;
};

inline constexpr PropertyShape allProperties[] = {
    {Property::architecture, string},
    {Property::veyraVersion, string},
    {Property::packages, packageRecordArray},
    {Property::operations, operationRecordArray},
    {Property::completedOperations, operationRecordArray},
};

} // namespace Emporium::Contract
