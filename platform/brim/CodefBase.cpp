#include "brim/CodefBase.h"

#include <algorithm>

namespace Brim {

CodefBase::CodefBase( Kel::Ptr<Kel::Clock> const & clock ) : clock_( clock ), deferred_( *this ) {}

void CodefBase::clockNotifieeTimeMinIs( double t ) {
   // Work that is due already would wait for yet another turn if it were asked for anew, and never be done where every
   // turn brings an update.
   bool const alreadyDue = deferred_.timeMin() <= Kel::now();
   if( alreadyDue && t <= Kel::now() ) return;
   deferred_.timeMinIs( t );
}

void CodefBase::updateWorkStats( uint64_t seen, uint64_t processed ) {
   updatesSeenInc( seen );
   updatesProcessedInc( processed );
}

void CodefBase::prepareToDie() {
   kelDoZombieReactors( true );
   unscheduleCodef();
}

void CodefBase::handleSlice() {
   Kel::Ptr<CodefBase> const alive( this );
   Kel::Seconds const began = clock_->now();
   Kel::Seconds startTime = began;
   uint64_t const processed = processBacklog( startTime );
   if( !inService() ) return;  // torn down by its own work: nothing is to be asked for any more
   timeUsedInc( clock_->now() - began );
   dispatchCountInc();
   updateWorkStats( 0, processed );
   handleBacklog();
}

void CodefBase::handleBacklog() {
   uint64_t const left = backlogSize();
   updatesCoalesced_ = updatesSeen_ - std::min( updatesSeen_, updatesProcessed_ + left );
   if( left == 0 ) {
      warm_ = true;
      return;
   }
   yieldBeforeFinishingCountInc();
   scheduleCodef();
}

}  // namespace Brim
