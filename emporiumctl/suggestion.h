// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace EmporiumCtl {

/// "; did you mean 'install'?" with the most similar name, or an empty text if none is similar.
std::string DidYouMean(const std::string& text, const std::vector<std::string>& names);

} // namespace EmporiumCtl
