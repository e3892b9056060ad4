#include "brim/CodefBase.h"

#include <algorithm>

namespace Brim {

CodefBase::CodefBase( Kel::Ptr<Kel::Clock> const & clock ) : clock_( clock ), deferred_( *this ) {}

void CodefBase::clockNotifieeTimeMinIs( double t ) {
   // A request that is due already stays as it is. Set anew it would wait for yet another turn, and where every turn
   // brings an update it would never be served.
   bool const alreadyDue = deferred_.timeMin() <= Kel::now();
   if( alreadyDue && t <= Kel::now() ) return;
   deferred_.timeMinIs( t );
}

void CodefBase::updateWorkStats( uint64_t seen, uint64_t processed ) {
   updatesSeenInc( seen );
   updatesProcessedInc( processed );
}

void CodefBase::prepareToDie() {
   // A slice that is running sees this when its work returns, and asks for no further one.
   kelDoZombieReactors( true );
   unscheduleCodef();
}

void CodefBase::handleSlice() {
   // Read afresh: the time of the turn stands still however long a slice takes. Two of them, because the work may move
   // its startTime, and what it took is counted all the same.
   Kel::Seconds const began = clock_->now();
   Kel::Seconds startTime = began;
   uint64_t const processed = processBacklog( startTime );
   if( !inService() ) return;  // torn down by its own work: nothing is to be asked for any more
   timeUsedInc( clock_->now() - began );
   dispatchCountInc();
   // Updates are counted as seen when they come, by the machine itself.
   updateWorkStats( 0, processed );
   handleBacklog();
}

void CodefBase::handleBacklog() {
   uint64_t const left = backlogSize();
   // What was seen and is neither worked off nor left was covered by other work. Not below 0: a machine may also find
   // work that no update brought.
   updatesCoalesced_ = updatesSeen_ - std::min( updatesSeen_, updatesProcessed_ + left );
   if( left == 0 ) {
      warm_ = true;
      return;
   }
   yieldBeforeFinishingCountInc();
   // In the next turn, not at once: timers and other work come in between.
   scheduleCodef();
}

}  // namespace Brim
