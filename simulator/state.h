// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_pointer.h"

#include <common/error.h>
#include <common/operation_status.h>
#include <common/operation_type.h>

#include <string>
#include <vector>

namespace Simulator {

struct PackageRecord
{
    std::string id;
    std::string version;
    std::string subgroup;
    std::string certificateID;
    unsigned dictionaryEntries = 0;
};

struct OperationRecord
{
    std::string uuid;
    std::string packageID;
    Common::OperationType type = Common::OperationType::Install;
    Common::OperationStatus status = Common::OperationStatus::None;
    Common::ErrorCode errorCode = Common::ErrorCode::None;
};

/// What the daemon knows.
struct State
{
    std::string architecture;
    std::string veyraVersion;
    std::vector<PackageRecord> packages;
    std::vector<OperationRecord> active;
    std::vector<OperationRecord> completed;

    PackageRecord* FindPackage(const std::string& id);
};

/// A small catalogue, for a start.
State BuiltInState();

/// Made-up packages, for tests of scale.
std::vector<PackageRecord> MadeUpPackages(unsigned count, unsigned dictionaryEntries);

// Records and lists as they travel; floating, as GLib's constructors give them.
GVariant* ToVariant(const PackageRecord& package);
GVariant* ToVariant(const OperationRecord& operation);
GVariant* ToVariant(const std::vector<PackageRecord>& packages);
GVariant* ToVariant(const std::vector<OperationRecord>& operations);

} // namespace Simulator
