// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace TestSupport {

/// What `action` writes to standard output, which is where the library's log lines go.
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

/// The message of the exception that `action` throws.
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
