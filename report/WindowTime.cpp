#include "report/WindowTime.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "report/Scales.h"

namespace Report {

WindowTime::WindowTime( WindowStory const & story ) {
   double const begin = story.requested, end = std::max( story.end(), begin );
   double const entered = std::clamp( story.entered.value_or( end ), begin, end );
   // A unit that never came into maintenance goes from entering to leaving.
   double const left = std::clamp( story.exitRequested.value_or( end ), begin, end );
   double const entryEnds = std::min( entered, left );
   for( Part const & part : { Part{ begin, entryEnds, 0.3 }, Part{ entryEnds, left, 0.3 }, Part{ left, end, 0.12 } } ) {
      if( part.to > part.from ) parts_.push_back( part );
   }
   if( parts_.empty() ) parts_.push_back( { begin, begin + 1, 1 } );
   layOut();
}

// Parts that would be too narrow get their least, and the others share the rest by their lengths. Two rounds will do:
// of three parts at most one more can become too narrow by what the first took.
void WindowTime::layOut() {
   std::vector<bool> fixed( parts_.size(), false );
   std::vector<double> shares( parts_.size() );
   for( int round = 0; round < 3; ++round ) {
      double rest = 1, seconds = 0;
      for( std::size_t i = 0; i < parts_.size(); ++i ) {
         if( fixed[i] ) rest -= parts_[i].least;
         if( !fixed[i] ) seconds += parts_[i].to - parts_[i].from;
      }
      for( std::size_t i = 0; i < parts_.size(); ++i ) {
         shares[i] = fixed[i] ? parts_[i].least : rest * ( parts_[i].to - parts_[i].from ) / seconds;
      }
      for( std::size_t i = 0; i < parts_.size(); ++i ) {
         if( parts_.size() > 1 && shares[i] < parts_[i].least ) fixed[i] = stretched_ = true;
      }
   }
   double left = 0;
   for( std::size_t i = 0; i < parts_.size(); ++i ) {
      parts_[i].left = left;
      parts_[i].right = left = i + 1 == parts_.size() ? 1 : left + shares[i];
   }
}

double WindowTime::share( double time ) const {
   for( Part const & part : parts_ ) {
      if( time > part.to ) continue;
      double const within = std::max( 0.0, time - part.from ) / ( part.to - part.from );
      return part.left + within * ( part.right - part.left );
   }
   return 1;
}

std::string WindowTime::percent( double time ) const { return Kel::numberText( 100 * share( time ), 2 ) + "%"; }

std::vector<double> WindowTime::boundaries() const {
   std::vector<double> found;
   for( std::size_t i = 1; i < parts_.size(); ++i ) found.push_back( parts_[i].left );
   return found;
}

std::vector<WindowTime::Tick> WindowTime::ticks( Moments const & moments, double width, double textWidth ) const {
   std::vector<Tick> found;
   double free = 0;
   for( Part const & part : parts_ ) {
      TimeScale const scale( part.from, part.to, part.left * width, part.right * width );
      auto const times = scale.ticks( textWidth, moments.origin() );
      double const step = times.size() > 1 ? times[1] - times[0] : 1;
      for( double const time : times ) {
         double const x = scale.x( time );
         // A text stands on its mark. Marks of neighbouring parts come as close as they like.
         if( x - textWidth / 2 < free || x + textWidth / 2 > width ) continue;
         found.push_back( { x / width, moments.tick( time, step ) } );
         free = x + textWidth / 2;
      }
   }
   return found;
}

}  // namespace Report
