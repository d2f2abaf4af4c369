// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_pointer.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Simulator {

struct ErrorAnswer
{
    std::string name;
    std::string message;
};

/// What is to happen at the calls of one method, beside the usual.
struct MethodFaults
{
    std::map<unsigned, ErrorAnswer> errors; ///< By the number of calls until then, from 1.
    Owned<GVariant> answer;
    unsigned delay = 0;
    std::vector<std::pair<std::string, Owned<GVariant>>> signalsBeforeReply;
    bool exit = false;
};

/// Everything that the simulator was told to do wrong.
struct Faults
{
    std::map<std::string, MethodFaults> methods;
    std::map<std::string, Owned<GVariant>> properties; ///< Null for one that is left out.
    std::optional<int> operationError;
};

} // namespace Simulator
