// Deferred work in slices: the base of a machine that has more to do than one handler may take.
//
// The derived machine keeps its own backlog and asks for the work routine with scheduleCodef(). The base calls it from
// the activity loop, in a turn's second phase, never from within the caller and never nested. A slice stops by itself
// after about backlogQuantum seconds, measured on the clock read afresh; as long as it leaves a backlog, the base asks
// for another slice in the next turn. What a slice did goes into the work statistics, which never influence the work.
//
// Held by a Ptr like every machine; it may be dropped from within its own slice.
#pragma once

#include <cstdint>

#include "kel/ActivityLoop.h"
#include "kel/Entity.h"

namespace Brim {

class CodefBase : public Kel::Entity {
 public:
   explicit CodefBase( Kel::Ptr<Kel::Clock> const & clock );

   // The clock on which slices are measured.
   [[nodiscard]] Kel::Ptr<Kel::Clock> const & codefClock() const { return clock_; }

   // Asks for a slice in a later turn: as soon as may be, or `delay` seconds from now. The last request counts.
   void scheduleCodef() { clockNotifieeTimeMinIs( 0 ); }
   void scheduleCodefDelay( Kel::Seconds delay ) { clockNotifieeTimeMinIs( Kel::now() + delay ); }
   // Withdraws a request. A slice that is running still asks for the next one if it leaves a backlog.
   void unscheduleCodef() { clockNotifieeTimeMinIs( Kel::never ); }
   // The same by absolute time: a time that has passed means the next turn, +infinity withdraws.
   void clockNotifieeTimeMinIs( double t );
   [[nodiscard]] double clockNotifieeTimeMin() const { return deferred_.timeMin(); }

   // What is left to do; nonzero after a slice brings the next one.
   [[nodiscard]] virtual uint64_t backlogSize() const = 0;

   // Seconds of work allowed per slice
   [[nodiscard]] double backlogQuantum() const { return backlogQuantum_; }
   void backlogQuantumIs( double seconds ) { backlogQuantum_ = seconds; }

   // Work statistics
   [[nodiscard]] uint64_t updatesSeen() const { return updatesSeen_; }
   void updatesSeenIs( uint64_t n ) { updatesSeen_ = n; }
   void updatesSeenInc( uint64_t n = 1 ) { updatesSeen_ += n; }
   [[nodiscard]] uint64_t updatesProcessed() const { return updatesProcessed_; }
   void updatesProcessedIs( uint64_t n ) { updatesProcessed_ = n; }
   void updatesProcessedInc( uint64_t n = 1 ) { updatesProcessed_ += n; }
   [[nodiscard]] uint64_t updatesCoalesced() const { return updatesCoalesced_; }  // seen, and covered by another's work
   void updatesCoalescedIs( uint64_t n ) { updatesCoalesced_ = n; }
   void updatesCoalescedInc( uint64_t n = 1 ) { updatesCoalesced_ += n; }
   [[nodiscard]] uint64_t dispatchCount() const { return dispatchCount_; }  // slices
   void dispatchCountIs( uint64_t n ) { dispatchCount_ = n; }
   void dispatchCountInc( uint64_t n = 1 ) { dispatchCount_ += n; }
   [[nodiscard]] uint64_t yieldBeforeFinishingCount() const { return yieldBeforeFinishingCount_; }
   void yieldBeforeFinishingCountIs( uint64_t n ) { yieldBeforeFinishingCount_ = n; }
   void yieldBeforeFinishingCountInc( uint64_t n = 1 ) { yieldBeforeFinishingCount_ += n; }
   [[nodiscard]] double timeUsed() const { return timeUsed_; }  // seconds in slices
   void timeUsedIs( double seconds ) { timeUsed_ = seconds; }
   void timeUsedInc( double seconds ) { timeUsed_ += seconds; }
   [[nodiscard]] bool warm() const { return warm_; }  // a slice has left no backlog; stays so
   void warmIs( bool warm ) { warm_ = warm; }
   void updateWorkStats( uint64_t seen, uint64_t processed );

   // Withdraws what was asked for and silences the machine.
   void prepareToDie() override;

 protected:
   // One slice, begun at `startTime` of the clock. Returns how many items it worked off.
   virtual uint64_t processBacklog( Kel::Seconds & startTime ) = 0;

 private:
   class KelDeferred final : public Kel::Deferred {
    public:
      explicit KelDeferred( CodefBase & owner ) : Deferred( owner ), owner_( owner ) {}
      void onTimeMin() override { owner_.handleSlice(); }

    private:
      CodefBase & owner_;
   };

   void handleSlice();
   void handleBacklog();

   Kel::Ptr<Kel::Clock> const clock_;
   double backlogQuantum_ = 0.05;
   uint64_t updatesSeen_ = 0;
   uint64_t updatesProcessed_ = 0;
   uint64_t updatesCoalesced_ = 0;
   uint64_t dispatchCount_ = 0;
   uint64_t yieldBeforeFinishingCount_ = 0;
   double timeUsed_ = 0;
   bool warm_ = false;
   KelDeferred deferred_;
};

}  // namespace Brim
