// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <optional>
#include <string>

namespace EmporiumCtl {

/// What a failed call means for what was asked for.
enum class CallOutcome
{
    Refused,
    NotKnown, ///< No reply: the daemon may have done it.
    NoDaemon,
    BusLost
};

/// Why a call failed.
struct CallError
{
    CallOutcome outcome = CallOutcome::Refused;
    std::optional<int> code; ///< None if the error is not one of the daemon's own.
    std::string name; ///< The short name of the daemon's error, or another bus name; may be empty.
    std::string message;

    /// The name and the message.
    std::string Text() const;
};

/// Reads the library's text about a failed call, "Couldn't call … dbus method (REASON)". The library
/// passes the error on as this text alone, for Start and Restart without the error's name.
CallError ReadCallError(const std::string& text);

/// A refusal by this program itself.
CallError BadArgument(const std::string& message);

/// Refuses an argument that the bus cannot transport.
std::optional<CallError> CheckArgument(const std::string& argument);

} // namespace EmporiumCtl
