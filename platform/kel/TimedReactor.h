// Reactors on time, and the queue in which they wait for it.
//
// A timed reactor asks, with timeMinIs( t ), to be called when time t has come, and is called once for each setting.
// The activity loop owns two queues of them, timers and deferred work, and alone runs them. Users derive from
// Clock::NotifieeConst or from Deferred, not from the base here.
//
// A turn runs what was due when the turn began: the queue sets that batch aside first, so whatever is asked for while
// the batch runs waits for a later turn, also for a time in the past. A reactor of the batch that is cancelled, set
// anew or destroyed before its place has come is not called. Cost: O(log n) for each setting; nothing is allocated
// after a reactor's first.
#pragma once

#include <compare>
#include <cstdint>
#include <limits>
#include <map>

#include "kel/Notifiee.h"

namespace Kel {

class TimedReactor;

// The time that never comes: set, it cancels; read, nothing is asked for.
inline constexpr double never = std::numeric_limits<double>::infinity();

class TimedQueue {
 public:
   TimedQueue() = default;
   TimedQueue( TimedQueue const & ) = delete;
   TimedQueue & operator=( TimedQueue const & ) = delete;
   // What still waits is never called.
   ~TimedQueue();

   // The earliest time asked for, not counting the batch; `never` when nothing waits.
   [[nodiscard]] double nextDue() const { return waiting_.empty() ? never : waiting_.begin()->first.time; }

   void batchIs( double now );  // sets aside what is due at `now`
   void runBatch();             // earliest first, equal times in the order in which they were set
   void batchDel();             // what an exception kept from running waits again, with its place
   void forgetAll();            // nothing waits any more; reactors that did are idle

 private:
   friend class TimedReactor;

   struct Place {
      double time;
      uint64_t sequence;  // of the setting
      auto operator<=>( Place const & ) const = default;
   };
   using Reactors = std::map<Place, TimedReactor *>;

   void insert( TimedReactor & r, double t );

   Reactors waiting_;
   Reactors batch_;
   uint64_t sequence_ = 0;
};

class TimedReactor : public ReactorBase {
 public:
   ~TimedReactor() override { cancel(); }

   // When this is due, in seconds on the loop's clock; `never` when nothing is asked for, as while the handler runs.
   [[nodiscard]] double timeMin() const { return timeMin_; }
   // Replaces what was asked for before; +infinity cancels.
   void timeMinIs( double t );

   // The time has come. Not called when this or its owner is silent at that moment: the request is dropped.
   virtual void onTimeMin() = 0;

 protected:
   using ReactorBase::ReactorBase;

 private:
   friend class TimedQueue;

   [[nodiscard]] virtual TimedQueue & queue() const = 0;
   void cancel();

   double timeMin_ = never;
   TimedQueue::Reactors * in_ = nullptr;  // where place_ points, null when idle
   TimedQueue::Reactors::iterator place_;
   TimedQueue::Reactors::node_type node_;  // kept from one setting to the next
};

}  // namespace Kel
