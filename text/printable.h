// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// How both programs show text that they did not write themselves: of a package, a file, the daemon or
/// the command line. Such text could otherwise control the terminal, or show something else than what
/// it is.
///
/// All texts are UTF-8, whatever the locale is.
namespace Text {

/// Which letters can be shown.
enum class Letters
{
    All,
    Ascii
};

/// What to show on this descriptor: ASCII on a terminal whose locale is not UTF-8, because it would show
/// other letters, or obey a byte of a letter. All letters elsewhere: files and pipes are UTF-8.
/// The program must have set its locale.
Letters LettersFor(int descriptor);

/// The text on one line, with an escape for everything that is not visible: control characters,
/// invisible and zero-width characters, those that change the direction of the text, line and paragraph
/// separators, and code points that no character is assigned to. Bytes that are not UTF-8 become \xNN,
/// ASCII control characters too; other code points become \uNNNN or \UNNNNNNNN. The same for letters that cannot be shown.
///
/// A backslash is left as it is, so text that is printable already does not change.
std::string Printable(std::string_view text, Letters letters = Letters::All);

/// The number of terminal columns that Printable() text takes.
std::size_t Columns(std::string_view text);

/// Cuts Printable() text to this many columns (at least one); an ellipsis replaces what is cut.
std::string Shorten(std::string_view text, std::size_t columns, Letters letters = Letters::All);

/// A JSON document, with \uNNNN for what Printable() escapes. The document must be valid UTF-8.
std::string PrintableJson(std::string_view document, Letters letters = Letters::All);

} // namespace Text
