// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/glib_ptr.h"
#include "simulator/private_home.h"
#include "simulator/signals.h"

#include <functional>
#include <string>
#include <vector>

namespace Simulator {

/// The program that --private-bus runs. It ends with this process, even if this process is killed.
///
/// It stays in the process group of this process, so that the terminal's signals reach both, and a shell
/// can suspend both.
class Command
{
public:
    /// @param ended receives its exit status, or 128 + N if signal N terminated it
    /// @throws std::runtime_error when it cannot be started
    Command(const std::vector<std::string>& arguments, const Environment& environment,
            const IgnoredSignals& ignored, std::function<void(int status)> ended);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    void Signal(int number) { g_subprocess_send_signal(m_process.get(), number); }

    /// True unless it left the process group, as an interactive shell does.
    bool IsInThisProcessGroup() const;

private:
    static void Ended(GObject* source, GAsyncResult* result, gpointer data);

    ObjectPtr<GSubprocess> m_process;
    std::function<void(int status)> m_ended;
};

} // namespace Simulator
