// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <stdexcept>

namespace Emporium::Testing {

/// Thrown by the test kit: the simulator is missing or has ended, a verb is refused, the bus does not
/// start. what() says which, with the reason and, if the simulator wrote to its standard error, with
/// that text. A test framework shows it as the reason of the failure; no test needs to catch it.
class Error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Thrown instead of waiting for ever.
class DeadlineExceeded : public Error
{
public:
    using Error::Error;
};

} // namespace Emporium::Testing
