// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The whole interface of libemporium.

#include <common/export.h>

// What follows would bury the error about an older standard under its consequences.
#if __cplusplus >= 201703L

#include <common/error.h>
#include <common/operation_status.h>
#include <common/operation_type.h>
#include <emporium/daemon_connection.h>
#include <emporium/daemon_watch.h>
#include <emporium/event_subscription.h>
#include <emporium/event_type.h>
#include <emporium/operation.h>
#include <emporium/operation_request.h>
#include <emporium/package.h>
#include <emporium/package_filters.h>
#include <emporium/result.h>

#endif
