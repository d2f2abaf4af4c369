// SPDX-License-Identifier: BSD-3-Clause
#include "client/keyed_list.h" // not allowed
#include "common/fs/file_name.h"
#include "dbus/properties.h" // not allowed

#include <string>
