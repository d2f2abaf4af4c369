// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/suggestion.h"

#include <glib.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace Simulator {

namespace {

/// The number of letters that must be changed, inserted or removed; upper and lower case are the same.
std::size_t Distance(const std::string& left, const std::string& right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const bool same = g_ascii_tolower(left[i]) == g_ascii_tolower(right[j]);
            const std::size_t changed = diagonal + (same ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

} // namespace

std::string Suggestion(const std::string& mistyped, const std::vector<std::string>& names)
{
    constexpr std::size_t longest = 64;
    if (mistyped.size() > longest) {
        return {};
    }
    const auto nearest =
        std::min_element(names.begin(), names.end(), [&](const auto& left, const auto& right) {
            return Distance(mistyped, left) < Distance(mistyped, right);
        });
    if (nearest == names.end() || Distance(mistyped, *nearest) > nearest->size() / 3) {
        return {};
    }
    return "; did you mean " + *nearest + "?";
}

} // namespace Simulator
