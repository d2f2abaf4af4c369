// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace Text {

/// "; did you mean 'install'?" with the name that was probably meant, or an empty text if none is
/// similar. Upper and lower case are the same.
std::string DidYouMean(const std::string& text, const std::vector<std::string>& names);

} // namespace Text
