// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/call_error.h"

#include "emporiumctl/names.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace EmporiumCtl {
namespace {

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

bool IsMessageOf(const std::string& text, int error)
{
    return text == std::generic_category().message(error);
}

CallOutcome OutcomeByName(const std::string& name)
{
    const auto is = [&name](const char* bus) {
        return name == std::string("org.freedesktop.DBus.Error.") + bus;
    };
    if (is("NoReply") || is("Timeout") || is("TimedOut")) {
        return CallOutcome::NotKnown;
    }
    if (is("ServiceUnknown") || is("NameHasNoOwner")) {
        return CallOutcome::NoDaemon;
    }
    return is("Disconnected") || is("NoServer") ? CallOutcome::BusLost : CallOutcome::Refused;
}

/// Where there is no name: by the texts of the bus daemons and of the bus library.
CallOutcome OutcomeByMessage(const std::string& message)
{
    if (IsMessageOf(message, ETIMEDOUT) || Contains(message, "without replying") ||
        message == "Remote peer disconnected") {
        return CallOutcome::NotKnown;
    }
    if (Contains(message, "was not provided by any .service files") ||
        Contains(message, "does not exist on the bus")) {
        return CallOutcome::NoDaemon;
    }
    const std::array<int, 3> lost{ECONNRESET, ENOTCONN, EPIPE};
    return std::any_of(lost.begin(), lost.end(),
                       [&](int error) { return IsMessageOf(message, error); })
               ? CallOutcome::BusLost
               : CallOutcome::Refused;
}

/// What the library has put in parentheses.
std::string Reason(const std::string& text)
{
    const std::string begin = " dbus method (";
    const std::size_t found = text.find(begin);
    if (found == std::string::npos || text.back() != ')') {
        return text;
    }
    const std::size_t from = found + begin.size();
    return text.substr(from, text.size() - from - 1);
}

} // namespace

std::string CallError::Text() const
{
    return name.empty() ? message : name + ": " + message;
}

CallError ReadCallError(const std::string& text)
{
    CallError error;
    error.message = Reason(text);
    const std::size_t nameEnd = error.message.find("] ");
    const bool named = error.message.rfind('[', 0) == 0 && nameEnd != std::string::npos;
    if (named) {
        error.name = error.message.substr(1, nameEnd - 1);
        error.message.erase(0, nameEnd + 2);
        error.outcome = OutcomeByName(error.name);
    } else {
        error.outcome = OutcomeByMessage(error.message);
    }
    for (const KnownError& known : KnownErrors()) {
        if (named ? known.busName == error.name : known.message == error.message) {
            error.code = known.code;
            error.name = known.name;
            break;
        }
    }
    return error;
}

CallError BadArgument(const std::string& message)
{
    constexpr Common::ErrorCode code = Common::ErrorCode::InvalidArguments;
    return {CallOutcome::Refused, static_cast<int>(code),
            Common::ErrorCodeHelper(static_cast<int>(code)).errorCodeAsString(), message};
}

std::optional<CallError> CheckArgument(const std::string& argument)
{
    const auto size = static_cast<gssize>(argument.size());
    if (g_utf8_validate(argument.data(), size, nullptr) == FALSE) {
        return BadArgument("not UTF-8, so the bus cannot transport it");
    }
    return {};
}

} // namespace EmporiumCtl
