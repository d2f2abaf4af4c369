// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/progress.h"

#include "emporiumctl/detached_progress.h"
#include "emporiumctl/json_progress.h"
#include "emporiumctl/line_progress.h"
#include "emporiumctl/live_progress.h"

namespace EmporiumCtl {

std::unique_ptr<Progress> MakeProgress(Output& out)
{
    if (out.Json()) {
        return std::make_unique<JsonProgress>(out);
    }
    if (out.CanRedraw() && !out.Quiet()) {
        return std::make_unique<LiveProgress>(out);
    }
    return std::make_unique<LineProgress>(out);
}

std::unique_ptr<Progress> MakeDetachedProgress(Output& out)
{
    if (out.Json()) {
        return std::make_unique<JsonArrayProgress>(out);
    }
    return std::make_unique<UuidProgress>(out);
}

} // namespace EmporiumCtl
