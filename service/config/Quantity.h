// Durations and traffic rates as a person writes them: a decimal number and, with no blank between, its unit.
//
//   durations  500ms  10s  2.5min  2h           value in seconds
//   rates      0bps  100kbps  1Mbps  2.5Gbps    value in kbps; bits, and 1000 to the next unit
//
// The unit is always required: a bare "10" has been read as minutes by one person and as milliseconds by the next.
#pragma once

#include <string>
#include <string_view>

namespace Service::Config {

// No duration is longer than what 32 bits of seconds hold (136 years).
inline constexpr double maxDurationSeconds = 4294967295.0;

// A value, or the reason why the text is none; the reason is empty exactly when the value holds.
struct Quantity {
   double value = 0;
   std::string reason;
};

// Seconds, from 0 to maxDurationSeconds.
[[nodiscard]] Quantity durationSeconds( std::string_view text );

// Kilobits per second, 0 or more and finite.
[[nodiscard]] Quantity rateKbps( std::string_view text );

}  // namespace Service::Config
