// The activity loop: everything inside one agent happens in its turns, one after the other.
//
// A turn has one time, Kel::now(), which does not move until the next. It runs the work it was given (a request, a
// ready descriptor, a line of a scenario), then the timers that were due when it began, then the deferred work that
// was. What is asked for during a turn waits for a later one, also for a time in the past, so a turn always ends. Last
// come those who judge what the turn has changed (kel/TurnEnd.h).
//
// There is one loop in a process, made by the host with the clock that it is to follow. The loop never waits: whoever
// drives it does, until nextDue() or until there is work, and then calls turn(). An exception of a handler passes
// through to the driver; what the turn had not yet come to is kept for the next.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "kel/Assert.h"
#include "kel/Clock.h"
#include "kel/TurnEnd.h"

namespace Kel {

// What the process's activity manager was set up with.
class ActivityManagerConfig final : public PtrInterface {
 public:
   explicit ActivityManagerConfig( Ptr<Clock> const & clock ) : clock_( clock ) {}
   [[nodiscard]] Ptr<Clock> const & clock() const { return clock_; }

 private:
   Ptr<Clock> const clock_;
};
// By which an activity names its manager; null stands for the process's.
using ActivityConfig = ActivityManagerConfig;

class ActivityLoop {
 public:
   using Work = std::function<void()>;

   // Becomes the process's loop; there must be none.
   explicit ActivityLoop( Ptr<Clock> const & clock );
   ActivityLoop( ActivityLoop const & ) = delete;
   ActivityLoop & operator=( ActivityLoop const & ) = delete;
   // Timers and deferred work that still wait are never called.
   ~ActivityLoop();

   [[nodiscard]] ActivityManagerConfig const & config() const { return *config_; }
   [[nodiscard]] Ptr<Clock> const & clock() const { return config_->clock(); }

   // When the present turn began; between turns the last one, before the first the time at construction.
   [[nodiscard]] double now() const { return now_; }
   // 1 for the first turn. A number not seen before means that time may have moved and everything may have changed.
   [[nodiscard]] uint64_t turnNumber() const { return turnNumber_; }
   [[nodiscard]] bool inTurn() const { return inTurn_; }
   // When the next turn is due by itself, in seconds on the clock; `never` when nothing waits. Asked between turns.
   [[nodiscard]] double nextDue() const;

   // One turn. It does not nest.
   void turn( Work const & work = {} );
   // Turns at each time at which something is due, up to and including t, moving the clock, which is this loop's, from
   // one to the next; afterwards it stands at t. Does not return while handlers keep asking for the present time.
   void runUntil( VirtualClock & clock, double t );

   // Drops all timers and deferred work, also what the present turn has not come to: the end of a simulated process.
   void forgetAll();

   // For timed reactors only.
   [[nodiscard]] TimedQueue & timers() { return timers_; }
   [[nodiscard]] TimedQueue & deferred() { return deferred_; }

 private:
   class TurnScope;
   friend ActivityLoop & activityLoop();
   friend double now();
   friend class TurnEnd;

   [[nodiscard]] TurnEnd * turnEndDue() const;  // the lowest that asked, null when none did

   static ActivityLoop * current_;
   static double now_;

   Ptr<ActivityManagerConfig> const config_;
   uint64_t turnNumber_ = 0;
   bool inTurn_ = false;
   TimedQueue timers_;
   TimedQueue deferred_;
   std::vector<TurnEnd *> turnEnds_;  // by rank
};

// The process's loop, which must exist.
[[nodiscard]] inline ActivityLoop & activityLoop() {
   KEL_ASSERT( ActivityLoop::current_ );
   return *ActivityLoop::current_;
}

// The name by which the plug-in knows the loop.
using ActivityManager = ActivityLoop;
[[nodiscard]] inline ActivityManager & activityManager() { return activityLoop(); }

// The time of the present turn in seconds: one load. Where no loop exists, that of the last turn of the last one, or 0.
[[nodiscard]] inline double now() { return ActivityLoop::now_; }

// Work for the second phase of a turn, after all timers.
class Deferred : public TimedReactor {
 public:
   using TimedReactor::TimedReactor;

 private:
   [[nodiscard]] TimedQueue & queue() const override { return activityLoop().deferred(); }
};

}  // namespace Kel
