// Quantities as people read them. The same value gives the same text in every program, table, picture and message.
#pragma once

#include <string>

namespace Kel {

// With at most so many decimals, and no zeros at their end.
[[nodiscard]] std::string numberText( double value, int decimals );
// Three digits and the unit that fits, as the configuration writes it: "93.4 kbps".
[[nodiscard]] std::string rateText( double bitsPerSecond );
// In its two largest units: "90 s", "12 min 30 s", "2 h 5 min", "30 d".
[[nodiscard]] std::string durationText( double seconds );

}  // namespace Kel
