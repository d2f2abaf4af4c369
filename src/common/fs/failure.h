// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/error.h>

#include "common/log/log_message.h"

#include <exception>
#include <string>

namespace Common {

/// The exception of the utilities: ErrorCode::Filesystem with a message of its own.
inline Error FilesystemError(const std::string& message)
{
    return Error(make_error_code(ErrorCode::Filesystem), message);
}

/// Logs the cause of a failure, which the exception's fixed message does not contain.
inline void LogCause(const std::exception& cause)
{
    LogMessage(LogLevel::Error) << cause.what();
}

/// Runs standard operations as one step. A failure is logged, and thrown with `message()`.
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
