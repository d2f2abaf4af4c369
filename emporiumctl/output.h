// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/descriptor_writer.h"
#include "emporiumctl/json.h"
#include "text/printable.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <unistd.h>

namespace EmporiumCtl {

enum class Colour
{
    None,
    Bold,
    Green,
    Red
};

enum class ColourMode
{
    Auto, ///< On a terminal, unless NO_COLOR is set.
    Always,
    Never
};

/// What standard output is wanted to be.
struct OutputStyle
{
    bool json = false;
    bool quiet = false;
    ColourMode colour = ColourMode::Auto;
};

struct WindowSize
{
    std::size_t rows = 24;
    std::size_t columns = 80;
    bool operator==(const WindowSize&) const = default;
};

/// Standard output: JSON for programs, or text for people. Everything that is printed is made printable
/// here. A failure to write is kept, and everything after it is dropped.
class Output
{
public:
    explicit Output(const OutputStyle& style);

    bool Json() const { return m_style.json; }
    bool Quiet() const { return m_style.quiet; }
    /// True if text is shown on a terminal.
    bool OnTerminal() const { return m_onTerminal; }
    /// True if lines can be replaced by others.
    bool CanRedraw() const { return m_canRedraw; }
    WindowSize Window() const;
    Text::Letters Letters() const { return m_letters; }

    /// A line of text.
    void Line(std::string_view text, Colour colour = Colour::None);
    /// A JSON document on a line.
    void Document(const EmporiumCtl::Json& document);
    /// Control characters for the terminal.
    void Control(std::string_view sequence) { m_writer.Append(sequence); }

    bool Flush() { return m_writer.Flush(); }
    bool Finish() { return m_writer.Finish(); }
    bool Good() const { return m_writer.Good(); }
    std::string Error() const { return m_writer.Error(); }

private:
    OutputStyle m_style;
    bool m_onTerminal;
    bool m_canRedraw;
    bool m_coloured;
    Text::Letters m_letters = Text::LettersFor(STDOUT_FILENO);
    DescriptorWriter m_writer;
};

/// Writes a message with the program's name to standard error.
void Complain(std::string_view message);

} // namespace EmporiumCtl
