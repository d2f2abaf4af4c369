// SPDX-License-Identifier: BSD-3-Clause
#include "text/suggestion.h"

#include <glib.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace Text {

namespace {

bool SameLetter(char a, char b)
{
    return g_ascii_tolower(a) == g_ascii_tolower(b);
}

/// The number of letters to insert, remove, replace, or swap with their neighbours.
std::size_t Distance(const std::string& a, const std::string& b)
{
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = SameLetter(a[i - 1], b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && SameLetter(a[i - 1], b[j - 2]) &&
                SameLetter(a[i - 2], b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

} // namespace

std::string DidYouMean(const std::string& text, const std::vector<std::string>& names)
{
    constexpr std::size_t longest = 100;
    if (names.empty() || text.size() > longest) {
        return "";
    }
    const auto nearest = std::min_element(names.begin(), names.end(),
                                          [&](const std::string& a, const std::string& b) {
                                              return Distance(text, a) < Distance(text, b);
                                          });
    const bool similar = Distance(text, *nearest) <= std::max<std::size_t>(1, nearest->size() / 3);
    return similar ? "; did you mean '" + *nearest + "'?" : "";
}

} // namespace Text
