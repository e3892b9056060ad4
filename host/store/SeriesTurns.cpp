#include "store/SeriesTurns.h"

#include <algorithm>
#include <cmath>

#include "evidence/Windows.h"

namespace Host {

namespace {

bool underWay( Follower const & window ) {
   return static_cast<Evidence::Window const &>( window.entity() ).outcome() == Evidence::Outcome::underway;
}

}  // namespace

void SeriesTurns::add( Follower & follower, bool inStore ) {
   Kel::Entity const & e = follower.entity();
   if( dynamic_cast<Evidence::Window const *>( &e ) && underWay( follower ) ) growing_[e.name()] = &follower;
   if( dynamic_cast<Evidence::WindowIntf const *>( &e ) && !inStore ) isDue( follower );
}

void SeriesTurns::remove( Follower & follower ) {
   if( follower.place() != 0 ) {
      // The last takes its place.
      due_.back()->placeIs( follower.place() );
      due_[follower.place() - 1] = due_.back();
      due_.pop_back();
      follower.placeIs( 0 );
   }
   if( !dynamic_cast<Evidence::Window const *>( &follower.entity() ) ) return;
   auto const found = growing_.find( follower.entity().name() );
   if( found != growing_.end() && found->second == &follower ) growing_.erase( found );
   ended_.erase( &follower );
}

void SeriesTurns::isDue( Follower & intf ) {
   if( intf.place() != 0 ) return;
   due_.push_back( &intf );
   intf.placeIs( static_cast<uint32_t>( due_.size() ) );
}

void SeriesTurns::allOfIsDue( Follower const & window ) {
   window.eachBelow( "", [this]( Follower & intf ) {
      isDue( intf );
      return true;
   } );
}

void SeriesTurns::windowDue( Follower const & window ) {
   auto const found = growing_.find( window.entity().name() );
   if( found != growing_.end() && found->second == &window ) allOfIsDue( window );
   if( !underWay( window ) ) ended_.insert( &window );
}

void SeriesTurns::allDue() {
   for( auto const & [name, window] : growing_ ) allOfIsDue( *window );
}

void SeriesTurns::someDue( double now ) {
   std::size_t all = 0;
   for( auto const & [name, window] : growing_ ) all += window->countBelow();
   owed_ += static_cast<double>( all ) * std::min( ( now - asked_ ) / period, 1.0 );
   asked_ = now;
   double const turns = std::floor( owed_ );
   owed_ -= turns;
   if( all > 0 ) turnsAre( static_cast<std::size_t>( turns ) );
}

// There are interfaces. They go on behind the one that was last, which may be gone, as may be its window.
void SeriesTurns::turnsAre( std::size_t turns ) {
   for( auto at = growing_.lower_bound( window_ ); turns > 0; ++at ) {
      if( at == growing_.end() ) at = growing_.begin();
      if( at->first != window_ ) intf_.clear();
      window_ = at->first;
      at->second->eachBelow( intf_, [&]( Follower & intf ) {
         isDue( intf );
         intf_ = intf.entity().name();
         return --turns > 0;
      } );
      // All had their turns; where it is the only window, they begin anew.
      if( turns > 0 ) intf_.clear();
   }
}

void SeriesTurns::written() {
   for( Follower * const intf : due_ ) intf->placeIs( 0 );
   // With their memory: thousands may have been due, as when a unit enters.
   std::vector<Follower *>().swap( due_ );
   for( Follower const * const window : ended_ ) growing_.erase( window->entity().name() );
   ended_.clear();
}

}  // namespace Host
