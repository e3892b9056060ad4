#include "kel/ActivityLoop.h"

#include <algorithm>

#include "kel/Dispatch.h"

namespace Kel {

ActivityLoop * ActivityLoop::current_ = nullptr;
double ActivityLoop::now_ = 0;

// Leaves the loop in order also when a handler throws.
class ActivityLoop::TurnScope {
 public:
   explicit TurnScope( ActivityLoop & loop ) : loop_( loop ) {
      KEL_ASSERT( !loop.inTurn_ );
      loop.inTurn_ = true;
      ++loop.turnNumber_;
      now_ = loop.clock()->now();
      // Both queues before any work runs: what the work or a timer asks for belongs to a later turn, or a turn might
      // never end.
      loop.timers_.batchIs( now_ );
      loop.deferred_.batchIs( now_ );
   }
   TurnScope( TurnScope const & ) = delete;
   TurnScope & operator=( TurnScope const & ) = delete;
   ~TurnScope() {
      loop_.timers_.batchDel();
      loop_.deferred_.batchDel();
      loop_.inTurn_ = false;
   }

 private:
   ActivityLoop & loop_;
};

ActivityLoop::ActivityLoop( Ptr<Clock> const & clock ) : config_( new ActivityManagerConfig( clock ) ) {
   KEL_ASSERT( !current_ );
   current_ = this;
   now_ = clock->now();
}

ActivityLoop::~ActivityLoop() {
   KEL_ASSERT( !inTurn_ );
   current_ = nullptr;  // now_ stays: what is torn down after the loop may still trace
}

double ActivityLoop::nextDue() const {
   // What asked between two turns does not wait for another reason to have one.
   if( turnEndDue() ) return now_;
   return std::min( timers_.nextDue(), deferred_.nextDue() );
}

TurnEnd * ActivityLoop::turnEndDue() const {
   auto const found = std::ranges::find_if( turnEnds_, []( TurnEnd const * t ) { return t->due_; } );
   return found == turnEnds_.end() ? nullptr : *found;
}

void ActivityLoop::turn( Work const & work ) {
   TurnScope const scope( *this );
   if( work ) {
      // Ends before the timers run, so what the work dropped is gone for them; each of those has a dispatch of its own.
      Dispatch const dispatch;
      work();
   }
   timers_.runBatch();
   deferred_.runBatch();
   while( TurnEnd * const next = turnEndDue() ) {
      // Before the call, from within which it may ask again.
      next->due_ = false;
      Dispatch const dispatch;
      next->onTurnEnd();
   }
}

void ActivityLoop::forgetAll() {
   timers_.forgetAll();
   deferred_.forgetAll();
   turnEnds_.clear();
   Dispatch::forgetDropped();
}

void ActivityLoop::runUntil( VirtualClock & clock, double t ) {
   KEL_ASSERT( &clock == config_->clock().get() );
   while( nextDue() <= t ) {
      // What is due may be in the past, but the clock never goes back.
      clock.nowIs( std::max( clock.now(), nextDue() ) );
      turn();
   }
   clock.nowIs( t );
}

}  // namespace Kel
