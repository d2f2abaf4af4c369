// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>

#include <string>

namespace Emporium::OperationFile {

/// Like Operation::FromFile(), but throws if the failure says nothing about the file:
/// std::system_error for a lack of descriptors, std::bad_alloc for a lack of memory.
Result<Operation> Read(const std::string& path);

/// Like Operation::SaveToFile(), but fails to open a symbolic link instead of following it.
Result<void> Write(const Operation& operation, const std::string& path);

} // namespace Emporium::OperationFile
