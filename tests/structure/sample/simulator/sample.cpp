// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/contract.h"
#include "dbus/decoder.h"      // not allowed
#include "model/result_impl.h" // not allowed
#include "store.h"

#include <emporium/operation.h> // not allowed
#include <gio/gio.h>
