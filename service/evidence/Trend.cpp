#include "evidence/Trend.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Evidence {

namespace {

// Fewer say nothing of noise. Where a load interval has not so many readings, the last ones before it are taken too.
constexpr std::size_t fewest = 3;
constexpr std::size_t enough = 4;
// A fall by less than this part in the time of the fit is none that anybody would wait for.
constexpr double leastFall = 0.1;
// So many times nearer to its points than a decay a line has to be.
constexpr double surelyALine = 4;
// An estimate that reaches so many times as far ahead as the fit looks back is a guess.
constexpr double horizon = 10;

// A line through points, by least squares: value and slope at 0, and how far the points lie from it.
struct Line {
   double at0;
   double slope;
   double squares;  // of the distances
   double spread;   // of the x
};

struct Point {
   double x;
   double y;
};
using Points = std::array<Point, 8>;

template<class Y>
Line fitted( Points const & points, std::size_t count, Y const & y ) {
   double const n = static_cast<double>( count );
   double meanX = 0;
   double meanY = 0;
   for( std::size_t i = 0; i < count; ++i ) {
      meanX += points[i].x / n;
      meanY += y( points[i] ) / n;
   }
   Line line{};
   double product = 0;
   for( std::size_t i = 0; i < count; ++i ) {
      line.spread += ( points[i].x - meanX ) * ( points[i].x - meanX );
      product += ( points[i].x - meanX ) * ( y( points[i] ) - meanY );
   }
   line.slope = line.spread > 0 ? product / line.spread : 0;
   line.at0 = meanY - line.slope * meanX;
   for( std::size_t i = 0; i < count; ++i ) {
      double const off = y( points[i] ) - line.at0 - line.slope * points[i].x;
      line.squares += off * off;
   }
   return line;
}

// Steeper downwards than noise makes it once in a hundred times (Student's t, one side, count - 2 degrees of freedom).
bool falls( Line const & line, std::size_t count ) {
   static constexpr std::array<double, 6> limits{ 31.8, 6.97, 4.54, 3.75, 3.37, 3.14 };
   double const noise = std::sqrt( line.squares / static_cast<double>( count - 2 ) );
   return line.slope < 0 && -line.slope * std::sqrt( line.spread ) > limits[count - fewest] * noise;
}

double squaresOfDecay( Points const & points, std::size_t count, Line const & logarithms ) {
   double squares = 0;
   for( std::size_t i = 0; i < count; ++i ) {
      double const off = points[i].y - std::exp( logarithms.at0 + logarithms.slope * points[i].x );
      squares += off * off;
   }
   return squares;
}

}  // namespace

void Trend::readingIs( double from, double to, Interface::IntfRates const & rates, double loadInterval ) {
   bool const first = count_ == 0;
   auto const peak = static_cast<float>( std::max( rates.inBitsRate, rates.outBitsRate ) );
   if( first || peak < low_ * ( 1 - leastFall ) ) {
      low_ = peak;
      lowSince_ = first ? from : to;
   }
   auto const seconds = static_cast<float>( to - from );
   bool const fits = count_ > 0 && static_cast<double>( latest_.seconds ) + ( to - from ) <=
                                      loadInterval / static_cast<double>( most );
   if( !fits ) keepLatest();
   Cell & cell = latest_;
   float const whole = cell.seconds + seconds;
   float const weight = whole > 0 ? seconds / whole : 1;
   cell.in += ( static_cast<float>( rates.inBitsRate ) - cell.in ) * weight;
   cell.out += ( static_cast<float>( rates.outBitsRate ) - cell.out ) * weight;
   cell.seconds = whole;
   cell.to = to;
}

void Trend::keepLatest() {
   if( count_ > 0 ) {
      if( !former_ ) former_ = std::make_unique<std::array<Cell, former>>();
      ( *former_ )[next_] = std::exchange( latest_, {} );
      next_ = static_cast<uint8_t>( ( next_ + 1u ) % former );
   }
   count_ = static_cast<uint8_t>( std::min<std::size_t>( count_ + 1u, most ) );
}

std::size_t Trend::recent( double loadInterval ) const {
   std::size_t count = 0;
   for( ; count < count_; ++count ) {
      if( count >= enough && cell( count ).to <= latest_.to - loadInterval ) break;
   }
   return count;
}

std::optional<double> Trend::fall( Rate rate, double threshold, std::size_t count ) const {
   constexpr double never = -1;
   Points points{};
   for( std::size_t i = 0; i < count; ++i ) {
      Cell const & c = cell( i );
      // In the middle of its time, counted from the last reading.
      points[i] = { c.to - static_cast<double>( c.seconds ) / 2 - latest_.to, static_cast<double>( c.*rate ) };
   }
   Line const line = fitted( points, count, []( Point const & p ) { return p.y; } );
   Line const decay = fitted( points, count, []( Point const & p ) { return std::log( std::max( p.y, 1.0 ) ); } );
   // A decay takes longer than a line, and over a short time one looks like the other: only what is sure is promised.
   bool const decays = squaresOfDecay( points, count, decay ) < surelyALine * line.squares;
   if( !falls( decays ? decay : line, count ) ) return never;
   double const span = points[0].x - points[count - 1].x;
   double const part =
      decays ? 1 - std::exp( decay.slope * span ) : -line.slope * span / std::max( line.at0 - line.slope * span, 1.0 );
   if( part < leastFall ) return never;
   double const left =
      decays ? ( decay.at0 - std::log( threshold ) ) / -decay.slope : ( line.at0 - threshold ) / -line.slope;
   if( !( left <= horizon * span ) ) return std::nullopt;
   return std::max( left, 0.0 );
}

Pace Trend::pace( double now, double threshold, double loadInterval ) const {
   if( count_ < fewest || !( threshold > 0 ) ) return {};
   std::size_t const count = recent( loadInterval );
   bool loud = false;
   bool falling = true;
   std::optional<double> left = 0;
   for( Rate const rate : { &Cell::in, &Cell::out } ) {
      // A direction that is quiet has nothing to fall to.
      if( static_cast<double>( latest_.*rate ) < threshold ) continue;
      loud = true;
      auto const of = fall( rate, threshold, count );
      falling = falling && !( of && *of < 0 );
      // The one that takes longest decides, and nobody knows when both are if nobody knows it of one.
      left = left && of ? std::optional( std::max( *left, *of ) ) : std::nullopt;
   }
   // Where the directions take turns each may be below it on average: that says nothing of when both are.
   if( loud && falling ) {
      double const since = now - latest_.to;
      return { Pace::Kind::slow, left ? std::optional( std::max( *left - since, 0.0 ) ) : std::nullopt, 0 };
   }
   // A microsecond is what sums of doubles may lack.
   if( latest_.to - lowSince_ < loadInterval - 1e-6 ) return {};
   return { Pace::Kind::stuck, std::nullopt, now - lowSince_ };
}

}  // namespace Evidence
