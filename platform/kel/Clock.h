// The clock: the one class that reads time.
//
// now() reads afresh, in seconds since an epoch that only differences of times may rely on. Code that reacts to
// something uses Kel::now() (kel/ActivityLoop.h), which does not move within a turn; now() of the clock itself is for
// measuring how long something takes. The loop takes its clock as a parameter: RealClock in the agent, VirtualClock
// where time is set from outside.
//
// Clock::NotifieeConst is a timer: a reactor on the clock that drives the activity loop. It never runs nested in
// another handler, only from the loop.
#pragma once

#include "kel/Assert.h"
#include "kel/Ptr.h"
#include "kel/TimedReactor.h"

namespace Kel {

class Clock : public PtrInterface {
 public:
   class NotifieeConst;

   [[nodiscard]] virtual double now() const = 0;
};

// Runs in the first phase of a turn. Usable while the loop of that clock exists.
class Clock::NotifieeConst : public TimedReactor {
 public:
   explicit NotifieeConst( Ptr<Clock const> const & clock ) : clock_( clock ) {}
   // Silent whenever `owner` is, which outlives the timer.
   NotifieeConst( Ptr<Clock const> const & clock, PtrInterface const & owner )
      : TimedReactor( owner ), clock_( clock ) {}

   [[nodiscard]] Ptr<Clock const> const & notifier() const { return clock_; }

 private:
   [[nodiscard]] TimedQueue & queue() const override;

   Ptr<Clock const> const clock_;
};

// Seconds since the machine was started, time asleep included; steps of the wall clock do not touch it.
class RealClock final : public Clock {
 public:
   [[nodiscard]] double now() const override;
};

// Stands still until told otherwise. With a step it also moves on by that much at each read, so that work seems to take
// time.
class VirtualClock final : public Clock {
 public:
   explicit VirtualClock( double start, double step = 0 ) : now_( start ), step_( step ) {}

   [[nodiscard]] double now() const override {
      double const read = now_;
      now_ += step_;
      return read;
   }
   // A time that the steps have already passed changes nothing: whoever sets it need not know how often the clock was
   // read.
   void nowIs( double t ) {
      KEL_ASSERT( t >= now_ || step_ > 0 );
      if( t > now_ ) now_ = t;
   }

 private:
   mutable double now_;
   double const step_;
};

}  // namespace Kel
