// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/operation_follower.h"
#include "emporiumctl/progress.h"

namespace EmporiumCtl {

ExitStatus RunOperations(Session& session, Output& out, const OperationOptions& options)
{
    const auto progress = options.wait ? MakeProgress(out) : MakeDetachedProgress(out);
    OperationFollower follower(session, out, *progress);
    follower.Create(options.type, options.targets, options.remote);
    return options.wait ? follower.Wait() : follower.Leave();
}

ExitStatus WaitForOperations(Session& session, Output& out, const std::vector<std::string>& uuids)
{
    const auto progress = MakeProgress(out);
    OperationFollower follower(session, out, *progress);
    follower.Attach(uuids);
    return follower.Wait();
}

} // namespace EmporiumCtl
