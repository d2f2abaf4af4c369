// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The filesystem utilities of the system's shared code: everything.
///
/// Two ways to fail, and each function keeps to one of them. Tests of an entry log what went wrong
/// and answer false. Everything else throws Common::Error with a fixed message; where the cause came
/// from the standard filesystem library, its text is logged just before. Exceptions that are not
/// derived from std::exception pass through. Nothing keeps a state; any thread may call anything,
/// except where a function says otherwise.

#include "common/fs/copy.h"
#include "common/fs/entries.h"
#include "common/fs/entry_tests.h"
#include "common/fs/extended_attributes.h"
#include "common/fs/paths.h"
#include "common/fs/permissions.h"
#include "common/fs/users.h"
