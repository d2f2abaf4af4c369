// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/error.h>

#include "common/log/log_message.h"

#include <exception>
#include <string>

namespace Common {

/// What the utilities throw: a filesystem error with a message of its own.
inline Error FilesystemError(const std::string& message)
{
    return Error(make_error_code(ErrorCode::Filesystem), message);
}

/// Logs why, for a failure that is then told in fixed words or not at all.
inline void LogCause(const std::exception& cause)
{
    LogMessage(LogLevel::Error) << cause.what();
}

/// Runs standard operations as one step: their failure is logged, and told as `message()`.
template <typename Step, typename Message>
auto Wrapped(Step step, Message message)
{
    try {
        return step();
    } catch (const std::exception& cause) {
        LogCause(cause);
        throw FilesystemError(message());
    }
}

} // namespace Common
