// Times of a window as people read them: dates in UTC, or seconds of a clock that is invented.
#pragma once

#include <optional>
#include <string>

namespace Report {

class Moments {
 public:
   // Seconds to add to a time for Unix time; none when the clock is invented. Times on the day of `first` can be told
   // without their date.
   Moments( std::optional<double> wallClockOffset, double first );

   [[nodiscard]] bool invented() const { return !offset_; }
   [[nodiscard]] double origin() const { return offset_ ? -*offset_ : 0; }  // of round times

   // "2026-11-21 21:04:10 UTC" or "130.5 s"
   [[nodiscard]] std::string full( double time ) const;
   // "21:04:10", "2026-11-22 00:00:05" on another day, or "130.5 s"
   [[nodiscard]] std::string brief( double time ) const;
   // For an axis with marks `step` seconds apart, at least: "21:04", "21:04:10", "11-22", or "130".
   [[nodiscard]] std::string tick( double time, double step ) const;

 private:
   std::optional<double> const offset_;
   std::string const firstDay_;
};

}  // namespace Report
