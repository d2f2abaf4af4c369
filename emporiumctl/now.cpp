// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/now.h"

#include <array>
#include <ctime>

namespace EmporiumCtl {

std::string Now()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

} // namespace EmporiumCtl
