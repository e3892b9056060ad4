// The tracker's work: the backlog of interfaces, in slices, and what is decided for each.
#include "IntfStatusSm.h"
#include "RateMonSm.h"
#include "RateMonTrace.h"

namespace MaintenanceMode {

using Maintenance::Profile::ProfileType;

void IntfStatusSm::addToBacklog( Lumo::IntfId intfId ) {
   updatesSeenInc( 1 );
   // Once, however often: what came in between is told apart as coalesced.
   backlog_.insert( intfId, true );
   clockNotifieeTimeMinIs( 0 );
}

uint64_t IntfStatusSm::processBacklog( Kel::Seconds & startTime ) {
   if( !initialized() ) return 0;
   Brisklog::BlockTimer const timer( "RateMon::IntfStatusSm codef backlog processing" );
   TRACE( 4, "startTime " << startTime );
   RING( 3, "processBacklog: startTime {}", startTime );
   uint64_t const count = workBacklog( startTime + backlogQuantum() );
   TRACE( 4, "processed " << count << " items" );
   RING( 3, "processBacklog: num items processed {}", count );
   return count;
}

// An interface leaves the backlog before it is worked on: whatever its work queues, itself included, comes again.
uint64_t IntfStatusSm::workBacklog( Kel::Seconds deadline ) {
   uint64_t count = 0;
   auto next = backlog_.keyFrom( bookmark() );
   // A bookmark behind the last one begins at the first, as if the walk had come around.
   if( !next ) next = backlog_.firstKey();
   while( next ) {
      Lumo::IntfId const intfId = *next;
      // Read afresh each time: within a turn the loop's own time stands still.
      bool const late = codefClock()->now() >= deadline;
      if( count > 0 && late ) {
         TRACE_AS( 4, "processBacklog", "Pausing backlog processing at " << intfId );
         RING( 3, "Pausing backlog processing at {}", intfId );
         bookmarkIs( intfId );
         return count;
      }
      backlog_.erase( intfId );
      // On to the next before the work, so that an interface which the work queues between the two waits for the next
      // round.
      next = backlog_.keyAfter( intfId );
      ++count;
      TRACE_AS( 9, "processBacklog", "intf " << intfId );
      processIntf( intfId );
      if( !inService() ) return count;
      if( !next ) next = backlog_.firstKey();
   }
   bookmarkDel();
   return count;
}

bool IntfStatusSm::isInMaintGroup( Lumo::IntfId intfId ) const {
   auto const intfToGroup = intfToGroupDir() ? intfToGroupDir()->intfToGroup( intfId ) : nullptr;
   // A group alone is not enough: without a selected profile the interface is in no unit's maintenance.
   auto const * const key = intfToGroup ? intfToGroup->selectedProfile( ProfileType::interface ) : nullptr;
   return key && !key->empty();
}

void IntfStatusSm::processIntf( Lumo::IntfId intfId ) {
   if( !isSupportedIntf( intfId ) ) {
      TRACE( 1, "intf " << intfId << " - is not not supported" );
      RING( 0, "processIntf: intf {} not supported", intfId );
      rootSm()->counters()->numIntfMonIntfNotSupportedInc( 1 );
      return;
   }
   bool const maintIntf = isInMaintGroup( intfId );
   bool const intfUp = rootSm()->isUp( intfId );
   bool const intfMon = rootSm()->intfMon( intfId ) != nullptr;
   TRACE( 9, "intf " << intfId << ", maintIntf " << maintIntf << ", intfUp " << intfUp << ", intfMon "
                     << ( intfMon ? "yes" : "no" ) );
   RING( 8, "processIntf: intf {}, maintIntf {}, intfUp {}, intfMon {}", intfId, maintIntf, intfUp,
         intfMon ? "yes" : "no" );
   // Both calls may be repeated without harm, so what is already so needs no question.
   if( !maintIntf || !intfUp ) {
      rootSm()->stopIntfMonInUnits( intfId );
      return;
   }
   // The profile before the units: one that joins finds the monitor as it will be.
   if( intfMon ) processProfileChange( intfId );
   if( !inService() ) return;
   rootSm()->startIntfMonInUnits( intfId );
}

void IntfStatusSm::processProfileChange( Lumo::IntfId intfId ) {
   TRACE( 9, "intf " << intfId );
   auto const intfMonSm = rootSm()->intfMon( intfId );
   if( !intfMonSm ) return;
   if( auto const profile = rootSm()->getIntfProfile( intfId ) ) intfMonSm->intfProfileIs( profile );
}

}  // namespace MaintenanceMode
