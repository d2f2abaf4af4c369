// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <string>
#include <vector>

namespace EmporiumCtl {

/// An error code that has a name.
struct KnownError
{
    int code;
    std::string name; ///< The short one.
    std::string busName;
    std::string message;
};

/// All of them, by number.
const std::vector<KnownError>& KnownErrors();

std::string NameOf(Common::OperationType type);

/// "succeeded", "failed", or the number that the daemon sent.
std::string NameOf(Common::OperationStatus status);

/// The short name and the message of an error code; of an unknown one, the number.
std::string Describe(Common::ErrorCode code);

/// "install org.example.clock: 40"
std::string Describe(const Emporium::Operation& operation);

} // namespace EmporiumCtl
