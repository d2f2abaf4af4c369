// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/output.h"

#include <cstdlib>
#include <sys/ioctl.h>

namespace EmporiumCtl {
namespace {

bool IsSet(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool TerminalHasCursor()
{
    return IsSet("TERM") && std::string_view(std::getenv("TERM")) != "dumb";
}

const char* Code(Colour colour)
{
    switch (colour) {
    case Colour::Bold:
        return "\033[1m";
    case Colour::Green:
        return "\033[32m";
    case Colour::Red:
        return "\033[31m";
    case Colour::None:
        break;
    }
    return "";
}

} // namespace

Output::Output(const OutputStyle& style)
    : m_style(style), m_onTerminal(!style.json && isatty(STDOUT_FILENO) != 0),
      m_canRedraw(m_onTerminal && TerminalHasCursor()),
      m_coloured(style.colour == ColourMode::Always ||
                 (style.colour == ColourMode::Auto && m_canRedraw && !IsSet("NO_COLOR"))),
      m_writer(STDOUT_FILENO)
{
}

WindowSize Output::Window() const
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

void Output::Line(std::string_view text, Colour colour)
{
    const bool painted = m_coloured && colour != Colour::None;
    if (painted) {
        m_writer.Append(Code(colour));
    }
    m_writer.Append(Text::Printable(text, m_letters));
    m_writer.Append(painted ? "\033[0m\n" : "\n");
}

void Output::Document(const EmporiumCtl::Json& document)
{
    m_writer.Append(EmporiumCtl::Line(document, m_letters) + '\n');
}

void Complain(std::string_view message)
{
    DescriptorWriter errors(STDERR_FILENO);
    errors.Append("emporiumctl: " + Text::Printable(message, Text::LettersFor(STDERR_FILENO)) +
                  '\n');
    errors.Flush();
}

} // namespace EmporiumCtl
