#include "report/Scales.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Report {

TimeScale::TimeScale( double from, double to, double left, double right )
   : from_( from ), span_( to > from ? to - from : 1 ), left_( left ), right_( right ) {}

std::vector<double> TimeScale::ticks( double apart, double origin ) const {
   // Seconds: what people call round is not decimal in minutes, hours and days. Beyond 500 days any step will do.
   static constexpr std::array<double, 26> rounds{
      1,    2,     5,     10,    15,    30,     60,     120,    300,     600,     900,     1800,     3600,
      7200, 10800, 21600, 43200, 86400, 172800, 432000, 864000, 1728000, 4320000, 8640000, 17280000, 43200000 };
   double const least = span_ * apart / ( right_ - left_ );
   auto const * const round = std::lower_bound( rounds.begin(), rounds.end(), least );
   double const step = round == rounds.end() ? least : *round;
   std::vector<double> found;
   // Multiplied and not added up, so that a long axis does not drift.
   double const first = origin + std::ceil( ( from_ - origin ) / step ) * step;
   // By the steps as well: so far out that a step is lost in the sum, the sum would never pass the end.
   for( int i = 0; i * step <= span_ && first + i * step <= from_ + span_; ++i ) found.push_back( first + i * step );
   return found;
}

RateScale::RateScale( double highestBits ) {
   // A scenario may set a record to any rate; beyond this everything lies at the top.
   while( topBits_ < highestBits && topBits_ < 1e30 ) topBits_ *= 10;
}

double RateScale::share( double bits ) const {
   double const within = std::clamp( bits, 0.0, topBits_ );
   // 1000 bit/s is where linear turns into logarithmic: well below the thresholds that people set, so that what matters
   // is on the logarithmic part.
   return std::log1p( within / 1000 ) / std::log1p( topBits_ / 1000 );
}

std::vector<double> RateScale::ticks( double apart ) const {
   std::vector<double> found{ 0 };
   for( double bits = 1e3; bits <= topBits_ * 1.5; bits *= 10 ) {
      if( share( bits ) - share( found.back() ) >= apart ) found.push_back( bits );
   }
   return found;
}

}  // namespace Report
