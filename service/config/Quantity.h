// Durations and traffic rates as a person writes them: decimal numbers with their units.
//
//   durations  500ms  10s  5m  1h30m  1d        value in seconds; kel/ReadDuration.h
//   rates      0bps  100kbps  1Mbps  2.5Gbps    value in kbps; bits, and 1000 to the next unit; no blank between
//
// The unit is always required: a bare "10" has been read as minutes by one person and as milliseconds by the next.
#pragma once

#include <string>
#include <string_view>

#include "kel/ReadDuration.h"

namespace Service::Config {

using Kel::maxDurationSeconds;

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
