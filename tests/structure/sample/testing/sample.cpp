// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"
#include "testing/bus_client.h"
#include <emporium/testing/error.h>
#include <gio/gio.h>

#include "dbus/contract.h"       // not allowed
#include <emporium/emporium.h>   // not allowed
#include <sdbus-c++/sdbus-c++.h> // not allowed
