// SPDX-License-Identifier: BSD-3-Clause
#include "common/log/log_message.h" // not allowed
