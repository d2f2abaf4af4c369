// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/live_progress.h"

#include "emporiumctl/names.h"
#include "text/printable.h"

#include <algorithm>

namespace EmporiumCtl {
namespace {

constexpr guint millisecondsBetweenDrawings = 200;

std::string Elapsed(const Task& task)
{
    return std::to_string(task.Seconds()) + " s  ";
}

} // namespace

LiveProgress::LiveProgress(Output& out)
    : LineProgress(out), m_window(out.Window()),
      m_timer(g_timeout_add(millisecondsBetweenDrawings, Tick, this))
{
}

LiveProgress::~LiveProgress()
{
    g_source_remove(m_timer);
}

void LiveProgress::Changed(const Task& task)
{
    // The next drawing shows it.
    static_cast<void>(task);
}

void LiveProgress::Ended(const Task& task)
{
    Print(Elapsed(task) + Describe(task.last), task.Failed() ? Colour::Red : Colour::Green);
}

void LiveProgress::Refresh(const std::vector<Task>& tasks)
{
    const WindowSize window = m_out.Window();
    if (window != m_window) {
        m_window = window;
        Erase();
        m_due = true;
    }
    if (m_due) {
        m_due = false;
        Draw(Lines(tasks, window));
    }
}

void LiveProgress::Close()
{
    Erase();
    m_out.Flush();
}

/// The text of the live part. The last line of the window stays free for the cursor.
std::vector<std::string> LiveProgress::Lines(const std::vector<Task>& tasks,
                                             WindowSize window) const
{
    std::vector<std::string> lines;
    const auto running = static_cast<std::size_t>(
        std::count_if(tasks.begin(), tasks.end(), [](const Task& task) { return task.Awaited(); }));
    const std::size_t room = std::max<std::size_t>(window.rows, 2) - 1;
    const std::size_t shown = running <= room ? running : room - 1;
    for (const Task& task : tasks) {
        if (task.Awaited() && lines.size() < shown) {
            const std::string text =
                task.described ? Describe(task.last) : NameOf(task.type) + ' ' + task.target;
            lines.push_back(Text::Shorten(Text::Printable(Elapsed(task) + text, m_out.Letters()),
                                          window.columns, m_out.Letters()));
        }
    }
    if (running > shown) {
        const std::string more = std::to_string(running - shown) + " more";
        lines.push_back(Text::Shorten(shown == 0 ? more : "and " + more, window.columns));
    }
    return lines;
}

/// Writes the lines that differ from those on the screen.
void LiveProgress::Draw(const std::vector<std::string>& lines)
{
    if (lines == m_drawn) {
        return;
    }
    if (lines.size() != m_drawn.size()) {
        Erase();
        for (const std::string& line : lines) {
            m_out.Line(line);
        }
    } else {
        m_out.Control("\033[" + std::to_string(lines.size()) + 'A');
        for (std::size_t index = 0; index < lines.size(); ++index) {
            if (lines[index] == m_drawn[index]) {
                m_out.Control("\n");
            } else {
                m_out.Control("\r\033[K");
                m_out.Line(lines[index]);
            }
        }
    }
    m_drawn = lines;
    m_out.Flush();
}

void LiveProgress::Erase()
{
    if (!m_drawn.empty()) {
        m_out.Control("\033[" + std::to_string(m_drawn.size()) + "A\r\033[J");
        m_drawn.clear();
    }
}

/// The live part is drawn again by the next Refresh(), once for all lines that are printed until then.
void LiveProgress::Print(const std::string& line, Colour colour)
{
    Erase();
    m_out.Line(line, colour);
}

void LiveProgress::PrintError(const std::string& message)
{
    Erase();
    m_out.Flush();
    Complain(message);
}

gboolean LiveProgress::Tick(gpointer self)
{
    static_cast<LiveProgress*>(self)->m_due = true;
    return G_SOURCE_CONTINUE;
}

} // namespace EmporiumCtl
