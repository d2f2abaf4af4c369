// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The test kit: everything that a test of an application needs, for any test framework. It is a
/// static library, Emporium::Testing in CMake and emporium-testing in pkg-config.

#include <emporium/testing/daemon_interface.h>
#include <emporium/testing/deadline.h>
#include <emporium/testing/environment.h>
#include <emporium/testing/error.h>
#include <emporium/testing/main_loop.h>
#include <emporium/testing/private_bus.h>
#include <emporium/testing/session.h>
#include <emporium/testing/simulator.h>
