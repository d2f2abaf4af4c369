// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/line_progress.h"

#include <glib.h>

#include <cstddef>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Lines of text, and below them a part that is redrawn: one line for each running operation, as many
/// as fit the window.
class LiveProgress final : public LineProgress
{
public:
    explicit LiveProgress(Output& out);
    ~LiveProgress() override;

    void Changed(const Task& task) override;
    void Ended(const Task& task) override;
    void Refresh(const std::vector<Task>& tasks) override;
    void Close() override;

private:
    void Print(const std::string& line, Colour colour) override;
    void PrintError(const std::string& message) override;
    void Erase();
    void Draw(const std::vector<std::string>& lines);
    std::vector<std::string> Lines(const std::vector<Task>& tasks, WindowSize window) const;
    static gboolean Tick(gpointer self);

    std::vector<std::string> m_drawn;
    WindowSize m_window;
    bool m_due = true; ///< Limits redrawing to a few times a second.
    guint m_timer;
};

} // namespace EmporiumCtl
