#include "report/RateCurves.h"

#include <algorithm>
#include <cmath>

namespace Report {

namespace {

// Steps from one place to the next, as short as SVG can say them.
class Stroke {
 public:
   void begin( int x, int y ) {
      commands_ += "M" + std::to_string( x ) + "," + std::to_string( y );
      x_ = ahead_ = x;
      y_ = y;
   }
   void toX( int x ) {
      // Levels are told when they change, so an even rate is one stroke and not hundreds.
      ahead_ = x;
   }
   void toY( int y ) {
      if( y == y_ ) return;
      flush();
      commands_ += "v" + std::to_string( y - y_ );
      y_ = y;
   }
   void close() {
      flush();
      commands_ += "z";
   }
   void flush() {
      if( ahead_ != x_ ) commands_ += "h" + std::to_string( ahead_ - x_ );
      x_ = ahead_;
   }
   [[nodiscard]] std::string const & commands() const { return commands_; }

 private:
   std::string commands_;
   int x_ = 0, y_ = 0, ahead_ = 0;
};

double merged( double a, double aSeconds, double b, double bSeconds ) {
   return aSeconds + bSeconds > 0 ? ( a * aSeconds + b * bSeconds ) / ( aSeconds + bSeconds ) : a;
}

}  // namespace

RateCurves::RateCurves( StoryIntf const & intf, WindowTime const & time, RateScale const & rates, int columns,
                        int height )
   : rates_( rates ), columns_( columns ), height_( height ) {
   for( StoryCell const & cell : intf.cells ) {
      int const left = static_cast<int>( std::lround( time.share( cell.from ) * columns ) );
      int const right = static_cast<int>( std::lround( time.share( cell.to ) * columns ) );
      add( cell, left, right );
   }
}

void RateCurves::add( StoryCell const & cell, int left, int right ) {
   Column * const last = stretches_.empty() ? nullptr : &stretches_.back().back();
   // Too narrow to be seen, or in a column that is taken: it shares one. Where there is none yet it gets the first.
   if( last && left <= last->right && ( right <= left || left < last->right ) ) {
      StoryCell & both = last->cell;
      double const before = both.to - both.from, now = cell.to - cell.from;
      both.inMean = merged( both.inMean, before, cell.inMean, now );
      both.outMean = merged( both.outMean, before, cell.outMean, now );
      both.inLow = std::min( both.inLow, cell.inLow );
      both.outLow = std::min( both.outLow, cell.outLow );
      both.inHigh = std::max( both.inHigh, cell.inHigh );
      both.outHigh = std::max( both.outHigh, cell.outHigh );
      both.to = cell.to;
      last->right = std::max( last->right, right );
      return;
   }
   if( !last || left > last->right ) stretches_.emplace_back();
   int const from = std::min( left, columns_ - 1 );
   stretches_.back().push_back( { from, std::max( right, from + 1 ), cell } );
}

int RateCurves::y( double bits, bool out ) const {
   // A pixel stays free at the middle, so that no traffic in and no traffic out are two lines, and two at the edge.
   double const middle = height_ / 2.0, room = middle - 6;
   double const away = 2 + rates_.share( bits ) * room;
   return static_cast<int>( std::lround( out ? middle + away : middle - away ) );
}

RateCurves::Level RateCurves::level( Rate rate, bool out ) const {
   return [this, rate, out]( Column const & column ) { return y( column.cell.*rate, out ); };
}

std::string RateCurves::line( Rate rate, bool out ) const {
   Level const at = level( rate, out );
   Stroke stroke;
   for( Stretch const & stretch : stretches_ ) {
      stroke.begin( stretch.front().left, at( stretch.front() ) );
      for( Column const & column : stretch ) {
         stroke.toX( column.left );
         stroke.toY( at( column ) );
         stroke.toX( column.right );
      }
      stroke.flush();
   }
   return stroke.commands();
}

// Forward along one level, back along the other.
std::string RateCurves::between( Level const & top, Level const & bottom ) const {
   Stroke stroke;
   for( Stretch const & stretch : stretches_ ) {
      stroke.begin( stretch.front().left, top( stretch.front() ) );
      for( Column const & column : stretch ) {
         stroke.toX( column.left );
         stroke.toY( top( column ) );
         stroke.toX( column.right );
      }
      for( auto column = stretch.rbegin(); column != stretch.rend(); ++column ) {
         stroke.toX( column->right );
         stroke.toY( bottom( *column ) );
         stroke.toX( column->left );
      }
      stroke.close();
   }
   return stroke.commands();
}

std::string RateCurves::measured() const {
   return between( []( Column const & ) { return 0; }, [this]( Column const & ) { return height_; } );
}

std::string RateCurves::area( Rate rate, bool out ) const {
   int const none = y( 0, out );
   return between( level( rate, out ), [none]( Column const & ) { return none; } );
}

std::string RateCurves::band( Rate low, Rate high, bool out ) const {
   return between( level( high, out ), level( low, out ) );
}

}  // namespace Report
