// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/contract.h" // not allowed
#include "dbus/properties.h"

#include <sdbus-c++/Error.h> // not allowed
