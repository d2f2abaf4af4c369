// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/output.h" // not allowed
#include "text/printable.h"

#include <glib.h>
