// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Includes all filesystem utilities of the system's shared code.
///
/// Tests of an entry log a failure and return false. All other functions throw Common::Error with a
/// fixed message; if the cause comes from the standard filesystem library, its text is logged just
/// before. Exceptions that are not derived from std::exception pass through. No function keeps
/// state; any thread may call any function, except where a comment says otherwise.

#include "common/fs/copy.h"
#include "common/fs/entries.h"
#include "common/fs/entry_tests.h"
#include "common/fs/extended_attributes.h"
#include "common/fs/paths.h"
#include "common/fs/permissions.h"
#include "common/fs/users.h"
