// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#if __cplusplus < 201703L
#error "libemporium needs C++17 or later (-std=c++17)"
#endif

/// Marks an entity that libemporium.so.0 exports; all others are hidden.
#define EMPORIUM_EXPORT __attribute__((visibility("default")))

/// Hides a member of an exported class.
#define EMPORIUM_LOCAL __attribute__((visibility("hidden")))
