#include "kel/TimedReactor.h"

#include <cmath>

#include "kel/Assert.h"
#include "kel/Dispatch.h"

namespace Kel {

TimedQueue::~TimedQueue() { forgetAll(); }

void TimedQueue::forgetAll() {
   batchDel();  // then all are in one place
   // By their own cancel(), which leaves each idle: they outlive the queue and must not reach into it any more.
   while( !waiting_.empty() ) waiting_.begin()->second->cancel();
}

void TimedQueue::batchIs( double now ) {
   KEL_ASSERT( batch_.empty() );
   while( nextDue() <= now ) {
      TimedReactor & r = *waiting_.begin()->second;
      // Each comes after those before it, so the end is the right hint and no place is searched.
      r.place_ = batch_.insert( batch_.end(), waiting_.extract( waiting_.begin() ) );
      r.in_ = &batch_;
   }
}

void TimedQueue::runBatch() {
   // Always the first that is left: handlers cancel and destroy others of the batch.
   while( !batch_.empty() ) {
      TimedReactor & r = *batch_.begin()->second;
      r.cancel();  // idle before it is called, which may set it anew or destroy it
      Dispatch const dispatch;
      if( r.deliverable() ) r.onTimeMin();
   }
}

void TimedQueue::batchDel() {
   // Nodes move from map to map as they are, so each reactor's `place_` still holds.
   for( auto const & [place, r] : batch_ ) r->in_ = &waiting_;
   waiting_.merge( batch_ );
}

void TimedQueue::insert( TimedReactor & r, double t ) {
   // A new number at each setting: set anew, a reactor is behind those of the same time.
   Place const place{ t, ++sequence_ };
   if( r.node_.empty() ) {
      // Only a map makes nodes. This one is kept from now on, so later settings allocate nothing.
      Reactors made;
      made.emplace( place, &r );
      r.node_ = made.extract( made.begin() );
   }
   r.node_.key() = place;
   r.place_ = waiting_.insert( std::move( r.node_ ) ).position;
   r.in_ = &waiting_;
}

void TimedReactor::timeMinIs( double t ) {
   // It has no place in the order, and would put that of all others in doubt.
   KEL_ASSERT( !std::isnan( t ) );
   cancel();
   if( t == never ) return;
   queue().insert( *this, t );
   timeMin_ = t;
}

void TimedReactor::cancel() {
   if( !in_ ) return;
   node_ = in_->extract( place_ );
   in_ = nullptr;
   timeMin_ = never;
}

}  // namespace Kel
