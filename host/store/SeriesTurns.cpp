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

void SeriesTurns::add( Follower const & follower, bool inStore ) {
   if( dynamic_cast<Evidence::Window const *>( &follower.entity() ) ) windows_[follower.path()] = &follower;
   if( !dynamic_cast<Evidence::WindowIntf const *>( &follower.entity() ) ) return;
   if( !inStore ) due_.insert( &follower );
   auto const * const window = windowOf( follower );
   if( window && underWay( *window ) ) growing_[follower.path()] = &follower;
}

void SeriesTurns::remove( Follower const & follower ) {
   for( ByPath * const all : { &windows_, &growing_ } ) {
      auto const found = all->find( follower.path() );
      if( found != all->end() && found->second == &follower ) all->erase( found );
   }
   due_.erase( &follower );
   ended_.erase( &follower );
}

// By its path: that of the window, the collection, and the interface, none of which has a slash in a path.
Follower const * SeriesTurns::windowOf( Follower const & intf ) const {
   std::string_view path = intf.path();
   for( int i = 0; i < 2; ++i ) path = path.substr( 0, path.rfind( '/' ) );
   auto const found = windows_.find( path );
   return found == windows_.end() ? nullptr : found->second;
}

std::vector<Follower const *> SeriesTurns::growingIn( Follower const & window ) const {
   std::string const top = window.path() + "/";
   std::vector<Follower const *> found;
   for( auto i = growing_.lower_bound( top ); i != growing_.end() && i->first.starts_with( top ); ++i ) {
      found.push_back( i->second );
   }
   return found;
}

void SeriesTurns::windowDue( Follower const & window ) {
   for( Follower const * const intf : growingIn( window ) ) due_.insert( intf );
   if( !underWay( window ) ) ended_.insert( &window );
}

void SeriesTurns::allDue() {
   for( auto const & [path, intf] : growing_ ) due_.insert( intf );
}

void SeriesTurns::someDue( double now ) {
   owed_ += static_cast<double>( growing_.size() ) * std::min( ( now - asked_ ) / period, 1.0 );
   asked_ = now;
   auto next = growing_.upper_bound( position_ );
   for( ; owed_ >= 1 && !growing_.empty(); --owed_ ) {
      if( next == growing_.end() ) next = growing_.begin();
      due_.insert( next->second );
      position_ = next->first;
      ++next;
   }
   owed_ -= std::floor( owed_ );
}

void SeriesTurns::written() {
   due_.clear();
   for( Follower const * const window : std::exchange( ended_, {} ) ) {
      for( Follower const * const intf : growingIn( *window ) ) growing_.erase( intf->path() );
   }
}

}  // namespace Host
