// SPDX-License-Identifier: BSD-3-Clause
#include "model/display_name.h" // not allowed

#include <emporium/result.h> // not allowed
