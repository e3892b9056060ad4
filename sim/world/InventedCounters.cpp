#include "world/InventedCounters.h"

#include <cmath>

#include "kel/ActivityLoop.h"

namespace Sim {

Brim::MaybeU63 InventedCounters::Flow::now() const {
   if( !octets.hasValue() || bitsPerSecond == 0 ) return octets;
   double const grown = std::floor( bitsPerSecond * ( Kel::now() - since ) / 8 );
   // A counter that runs over starts again at 0. Where even the growth is more than a counter holds, only its rest
   // counts.
   return octets.value() + static_cast<uint64_t>( std::fmod( grown, 0x1p63 ) );
}

void InventedCounters::intfIs( Lumo::IntfId intf ) {
   if( flows_.contains( intf ) ) return;
   writer_.rowIs( intf );
   flows_.emplace( intf, Flows{} );
   write( intf );
}

InventedCounters::Flow & InventedCounters::flow( Lumo::IntfId intf, Direction direction ) {
   intfIs( intf );
   Flows & flows = flows_[intf];
   return direction == Direction::in ? flows.in : flows.out;
}

void InventedCounters::octetsIs( Lumo::IntfId intf, Direction direction, Brim::MaybeU63 octets ) {
   Flow & f = flow( intf, direction );
   f.octets = octets;
   f.since = Kel::now();
   write( intf );
}

void InventedCounters::bitsPerSecondIs( Lumo::IntfId intf, Direction direction, double bitsPerSecond ) {
   Flow & f = flow( intf, direction );
   f = Flow{ f.now(), bitsPerSecond, Kel::now() };
   write( intf );
}

void InventedCounters::del( Lumo::IntfId intf ) {
   if( flows_.erase( intf ) != 0 ) writer_.rowDel( intf );
}

void InventedCounters::refresh() {
   for( auto const & [intf, flows] : flows_ ) write( intf );
}

void InventedCounters::write( Lumo::IntfId intf ) {
   Flows const & flows = flows_[intf];
   writer_.countersIs( intf, { flows.in.now(), flows.out.now(), Kel::now() } );
}

}  // namespace Sim
