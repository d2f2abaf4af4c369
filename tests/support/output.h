// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace TestSupport {

/// Returns what `action` writes to standard output, where the library writes its log lines.
template <typename Action>
std::string OutputOf(Action action)
{
    testing::internal::CaptureStdout();
    try {
        action();
    } catch (...) {
        testing::internal::GetCapturedStdout();
        throw;
    }
    return testing::internal::GetCapturedStdout();
}

/// Returns the message of the exception that `action` throws.
template <typename Exception, typename Action>
std::string MessageOf(Action action)
{
    try {
        action();
    } catch (const Exception& exception) {
        return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

} // namespace TestSupport
