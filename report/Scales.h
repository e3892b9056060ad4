// Where a moment and a rate stand in a picture.
#pragma once

#include <vector>

namespace Report {

// Time from left to right.
class TimeScale {
 public:
   // A run of no length is drawn as one second.
   TimeScale( double from, double to, double left, double right );

   [[nodiscard]] double x( double time ) const { return left_ + ( time - from_ ) / span_ * ( right_ - left_ ); }
   [[nodiscard]] double left() const { return left_; }
   [[nodiscard]] double right() const { return right_; }
   // Moments that are round when counted from the beginning, at least `apart` pixels apart.
   [[nodiscard]] std::vector<double> ticks( double apart ) const { return ticks( apart, from_ ); }
   // The same, round when counted from `origin`, which may be outside of the scale.
   [[nodiscard]] std::vector<double> ticks( double apart, double origin ) const;

 private:
   double const from_, span_;   // s
   double const left_, right_;  // pixels
};

// Rates on a scale that is linear around 0 and logarithmic from about 1 kbps on: 0 has a place of its own, and both
// 100 kbps and 10 Gbps can be read.
class RateScale {
 public:
   // Up to the power of ten at or above the highest rate, at least 1 Mbps.
   explicit RateScale( double highestBits );

   [[nodiscard]] double share( double bits ) const;           // of the height: 0 for no traffic, 1 for the top
   [[nodiscard]] double topBits() const { return topBits_; }  // bit/s
   // 0 and powers of ten, neighbours at least `apart` (a share of the height) apart.
   [[nodiscard]] std::vector<double> ticks( double apart ) const;

 private:
   double topBits_ = 1e6;
};

}  // namespace Report
