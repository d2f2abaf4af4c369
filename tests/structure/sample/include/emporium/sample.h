// SPDX-License-Identifier: BSD-3-Clause
#include <common/error.h>
#include <emporium/result.h>

#include "model/result_impl.h" // not allowed

#include <boost/optional.hpp> // not allowed
