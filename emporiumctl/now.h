// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace EmporiumCtl {

/// The present time as text, in UTC.
std::string Now();

} // namespace EmporiumCtl
