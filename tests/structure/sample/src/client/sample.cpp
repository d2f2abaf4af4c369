// SPDX-License-Identifier: BSD-3-Clause
#include "client/sample.h"

#include "common/log/log_message.h"
#include "dbus/decoder.h" // not allowed
#include "dbus/idbus_proxy.h"
#include "model/result_impl.h"

#include <emporium/result.h>

#include <glib.h>            // not allowed
#include <sdbus-c++/Error.h> // not allowed
