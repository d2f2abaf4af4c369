// SPDX-License-Identifier: BSD-3-Clause
#include "client/keyed_list.h" // not allowed
#include "dbus/contract.h"

#include <glib.h> // not allowed
#include <sdbus-c++/Error.h>
