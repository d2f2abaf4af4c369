// SPDX-License-Identifier: BSD-3-Clause
#include "model/result_impl.h" // not allowed

#include <emporium/result.h> // not allowed
