#include "world/InventedCounters.h"

#include <cmath>

#include "kel/ActivityLoop.h"

namespace Sim {

Brim::MaybeU63 InventedCounters::Flow::now() const {
   if( !octets.hasValue() || bitsPerSecond == 0 ) return octets;
   // Always from the last change and never added up sample by sample, so no rounding gathers and the order of reads
   // does not matter.
   double const grown = std::floor( bitsPerSecond * ( Kel::now() - since ) / 8 );
   // A counter that runs over starts again at 0. Where even the growth is more than a counter holds, only its rest
   // counts, which also keeps the cast within what it is defined for.
   return octets.value() + static_cast<uint64_t>( std::fmod( grown, 0x1p63 ) );
}

void InventedCounters::intfIs( Lumo::IntfId intf ) {
   if( flows_.contains( intf ) ) return;
   // First, as it throws when the table is full.
   writer_.rowIs( intf );
   flows_.emplace( intf, Flows{} );
   // At once: whoever looks into the table itself, and not through a reader, causes no refresh.
   write( intf );
}

InventedCounters::Flow & InventedCounters::flow( Lumo::IntfId intf, Direction direction ) {
   intfIs( intf );
   Flows & flows = flows_[intf];
   return direction == Direction::in ? flows.in : flows.out;
}

void InventedCounters::octetsIs( Lumo::IntfId intf, Direction direction, Brim::MaybeU63 octets ) {
   Flow & f = flow( intf, direction );
   // The rate stays: a scenario sets a counter back to see what the plug-in makes of a restart under traffic.
   f.octets = octets;
   f.since = Kel::now();
   write( intf );
}

void InventedCounters::bitsPerSecondIs( Lumo::IntfId intf, Direction direction, double bitsPerSecond ) {
   Flow & f = flow( intf, direction );
   // What the old rate has counted so far is kept.
   f = Flow{ f.now(), bitsPerSecond, Kel::now(), f.read };
   write( intf );
}

void InventedCounters::del( Lumo::IntfId intf ) {
   // Erased first: readers hear of the row, and a refresh in answer must not write to one that is gone.
   if( flows_.erase( intf ) != 0 ) writer_.rowDel( intf );
}

void InventedCounters::restartCounters( Lumo::IntfId intf ) {
   Flows & flows = flows_.at( intf );
   for( Flow * const f : { &flows.in, &flows.out } ) {
      if( !f->octets.hasValue() ) continue;
      auto const from = f->read.hasValue() ? f->read : Brim::MaybeU63( 0 );
      *f = Flow{ from, f->bitsPerSecond, Kel::now(), f->read };
   }
   flows.restarted = true;
}

void InventedCounters::refresh( KelQuill::Rows rows ) {
   for( auto const & [intf, flows] : flows_ ) {
      if( writer_.wants( intf, rows ) ) write( intf );
   }
}

void InventedCounters::write( Lumo::IntfId intf ) {
   if( unread_.contains( intf ) ) return;
   Flows & flows = flows_[intf];
   for( Flow * const f : { &flows.in, &flows.out } ) f->read = f->now();
   // Both directions and the time in one write, as the kernel's are: a row is one snapshot.
   writer_.readIs( intf, { flows.in.read, flows.out.read, std::exchange( flows.restarted, false ) } );
}

}  // namespace Sim
