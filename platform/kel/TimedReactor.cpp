#include "kel/TimedReactor.h"

#include <cmath>

#include "kel/Assert.h"
#include "kel/Dispatch.h"

namespace Kel {

TimedQueue::~TimedQueue() { forgetAll(); }

void TimedQueue::forgetAll() {
   batchDel();
   while( !waiting_.empty() ) waiting_.begin()->second->cancel();
}

void TimedQueue::batchIs( double now ) {
   KEL_ASSERT( batch_.empty() );
   while( nextDue() <= now ) {
      TimedReactor & r = *waiting_.begin()->second;
      r.place_ = batch_.insert( batch_.end(), waiting_.extract( waiting_.begin() ) );
      r.in_ = &batch_;
   }
}

void TimedQueue::runBatch() {
   while( !batch_.empty() ) {
      TimedReactor & r = *batch_.begin()->second;
      r.cancel();
      Dispatch const dispatch;
      if( r.deliverable() ) r.onTimeMin();
   }
}

void TimedQueue::batchDel() {
   for( auto const & [place, r] : batch_ ) r->in_ = &waiting_;
   waiting_.merge( batch_ );
}

void TimedQueue::insert( TimedReactor & r, double t ) {
   Place const place{ t, ++sequence_ };
   if( r.node_.empty() ) {
      Reactors made;
      made.emplace( place, &r );
      r.node_ = made.extract( made.begin() );
   }
   r.node_.key() = place;
   r.place_ = waiting_.insert( std::move( r.node_ ) ).position;
   r.in_ = &waiting_;
}

void TimedReactor::timeMinIs( double t ) {
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
