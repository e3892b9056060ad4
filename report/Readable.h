// Quantities and names as people read them, in tables and pictures. The same value gives the same text everywhere.
#pragma once

#include <string>
#include <string_view>

namespace Report {

// With at most so many decimals, and no zeros at their end.
[[nodiscard]] std::string numberText( double value, int decimals );
// Three digits and the unit that fits, as the configuration writes it: "93.4 kbps".
[[nodiscard]] std::string rateText( double bitsPerSecond );
// In its two largest units: "90 s", "12 min 30 s", "2 h 5 min", "30 d".
[[nodiscard]] std::string durationText( double seconds );

// Of UTF-8, where each character is taken to be one column wide.
[[nodiscard]] std::size_t columns( std::string_view text );
// Not wider than `most` columns, at least 3; a longer text loses its middle, as the end of a name often tells more.
[[nodiscard]] std::string clipped( std::string_view text, std::size_t most );

}  // namespace Report
