// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"
#include "simulator/print_error.h"

#include <string>
#include <string_view>

namespace Simulator {

/// What --verbose prints: each call and signal.
class Trace
{
public:
    static void Enable() { Enabled() = true; }

    /// @param value in text format; cut if it is long
    static void Print(const char* kind, std::string_view name, GVariant* value)
    {
        if (!Enabled()) {
            return;
        }
        constexpr std::size_t longest = 300;
        const TextPtr text(value != nullptr ? g_variant_print(value, FALSE) : g_strdup("()"));
        PrintError(std::string(kind) + " " + std::string(name) + " " +
                   Text::Shorten(text.get(), longest));
    }

private:
    static bool& Enabled()
    {
        static bool enabled = false;
        return enabled;
    }
};

} // namespace Simulator
