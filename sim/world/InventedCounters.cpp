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

InventedCounters::Flows & InventedCounters::flows( Lumo::IntfId intf ) {
   intfIs( intf );
   return flows_[intf];
}

void InventedCounters::octetsIs( Lumo::IntfId intf, Direction direction, Brim::MaybeU63 octets ) {
   Flow & f = flows( intf ).of( direction );
   // The rate stays: a scenario sets a counter back to see what the plug-in makes of a restart under traffic.
   f.octets = octets;
   f.since = Kel::now();
   write( intf );
}

void InventedCounters::bitsPerSecondIs( Lumo::IntfId intf, Direction direction, double bitsPerSecond ) {
   Flows & both = flows( intf );
   Flow & f = both.of( direction );
   // What the old rate has counted so far is kept.
   f = Flow{ both.now( f ), bitsPerSecond, Kel::now(), f.read };
   write( intf );
}

void InventedCounters::del( Lumo::IntfId intf ) {
   // Erased first: readers hear of the row, and a refresh in answer must not write to one that is gone.
   if( flows_.erase( intf ) != 0 ) writer_.rowDel( intf );
}

void InventedCounters::linkIs( Lumo::IntfId intf ) {
   auto const found = flows_.find( intf );
   if( found == flows_.end() ) return intfIs( intf );
   Flows & both = found->second;
   if( both.linked ) return;
   // First, as it throws when the table is full. It marks the row by itself: this interface had one before.
   writer_.rowIs( intf );
   both.linked = true;
   for( Flow * const f : { &both.in, &both.out } ) f->since = Kel::now();
   write( intf );
}

void InventedCounters::linkDel( Lumo::IntfId intf ) {
   auto const found = flows_.find( intf );
   if( found == flows_.end() || !found->second.linked ) return;
   Flows & both = found->second;
   both.linked = false;
   both.restarted = false;
   // What was counted since the last read is lost with the link.
   for( Flow * const f : { &both.in, &both.out } ) f->octets = f->read;
   writer_.rowDel( intf );
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
   Flows & flows = flows_[intf];
   if( !flows.linked || unread_.contains( intf ) ) return;
   for( Flow * const f : { &flows.in, &flows.out } ) f->read = f->now();
   // Both directions and the time in one write, as the kernel's are: a row is one snapshot.
   writer_.readIs( intf, { flows.in.read, flows.out.read, std::exchange( flows.restarted, false ) } );
}

}  // namespace Sim
