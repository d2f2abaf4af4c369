// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace TestSupport {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool hasAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool hasAddressSanitizer = true;
#else
inline constexpr bool hasAddressSanitizer = false;
#endif
#else
inline constexpr bool hasAddressSanitizer = false;
#endif

} // namespace TestSupport
