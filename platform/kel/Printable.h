// Text that somebody else has chosen, made fit for a terminal and for a line of a log.
//
// Control characters, those of ASCII and U+0080 to U+009F, could move the cursor, change colours or have the terminal
// type for its user; overrides of the writing direction and Unicode's own line breaks could make a line read as
// another. They are written as "\n", "\r", "\t" or "\u001b", a byte that is not UTF-8 as "\x9b". Backslashes stay as
// they are, so that what has been through here goes through again unchanged, and JSON stays the same document: there,
// such characters only occur in strings.
#pragma once

#include <string>
#include <string_view>

namespace Kel {

// As part of a line.
[[nodiscard]] std::string printable( std::string_view text );
// As whole lines: line feeds and tabs stay.
[[nodiscard]] std::string printableLines( std::string_view text );

}  // namespace Kel
