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

/// The text on one line, with an escape for everything that is not visible: control characters,
/// invisible and zero-width characters, those that change the direction of the text, line and paragraph
/// separators, and code points that no character is assigned to. Bytes that are not UTF-8 become \xNN,
/// ASCII control characters too; other code points become \uNNNN or \UNNNNNNNN.
///
/// A backslash is left as it is, so text that is printable already does not change.
std::string Printable(std::string_view text);

/// The number of terminal columns that Printable() text takes.
std::size_t Columns(std::string_view text);

/// Cuts Printable() text to this many columns (at least one); an ellipsis replaces what is cut.
std::string Shorten(std::string_view text, std::size_t columns);

/// A JSON document, with \uNNNN for what Printable() escapes. The document must be valid UTF-8.
std::string PrintableJson(std::string_view document);

} // namespace Text
