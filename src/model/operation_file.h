// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>

#include <string>

namespace Emporium::OperationFile {

/// As Operation::FromFile(), but throws where the failure says nothing about the file:
/// std::system_error if no descriptor is left, std::bad_alloc if no memory is.
Result<Operation> Read(const std::string& path);

/// As Operation::SaveToFile(), but never writes through a symbolic link: that is a failure to open.
Result<void> Write(const Operation& operation, const std::string& path);

} // namespace Emporium::OperationFile
