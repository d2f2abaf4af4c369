// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace EmporiumCtl {

/// Makes the user's bus on another machine the session bus of this process: the bus library starts ssh
/// and speaks through it. `host` is what ssh accepts, [USER@]HOST.
void UseBusOf(const std::string& host);

} // namespace EmporiumCtl
