#include "record/Journal.h"

#include <utility>

namespace Host {

namespace {

std::size_t costOf( Journal::Turn const & turn ) { return sizeof turn + turn.lines.capacity(); }

}  // namespace

void Journal::add( Turn turn ) {
   bytes_ += costOf( turn );
   turns_.push_back( std::move( turn ) );
   while( bytes_ > bytesMax_ && turns_.size() > 1 ) {
      bytes_ -= costOf( turns_.front() );
      turns_.pop_front();
      ++begin_;
   }
   // A copy: whoever is told may go.
   auto const listeners = listeners_;
   for( More const * const more : listeners ) {
      if( listeners_.contains( more ) && *more ) ( *more )();
   }
}

}  // namespace Host
