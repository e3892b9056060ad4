// Durations as a person writes them: decimal numbers, each with its unit, the largest first.
//
//   500ms   10s   2.5min   5m   1h30m   1min30s   "12 min 30 s"   1d
//
// Units are ms, s, m or min, h, and d of 24 hours; only the last number may have a fraction.
#pragma once

#include <string>
#include <string_view>

namespace Kel {

// No duration is longer than what 32 bits of seconds hold (136 years).
inline constexpr double maxDurationSeconds = 4294967295.0;

// A duration, or the reason why the text is none, with what to write instead; the reason is empty exactly when the
// value holds.
struct ReadDuration {
   double seconds = 0;
   std::string reason;
};
[[nodiscard]] ReadDuration readDuration( std::string_view text );

}  // namespace Kel
