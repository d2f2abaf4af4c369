// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#if __cplusplus < 201703L
#error "libemporium needs C++17 or later (-std=c++17)"
#endif

/// Marks what libemporium.so.0 exports; everything else in it is hidden.
#define EMPORIUM_EXPORT __attribute__((visibility("default")))

/// Keeps a member of an exported class inside the library.
#define EMPORIUM_LOCAL __attribute__((visibility("hidden")))
