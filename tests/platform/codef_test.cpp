// Deferred work in slices, told by a machine that works off numbered jobs on a clock that moves at each fresh read.
#include "brim/CodefBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <vector>

namespace {

class Worker final : public Brim::CodefBase {
 public:
   explicit Worker( Kel::Ptr<Kel::Clock> const & clock ) : CodefBase( clock ) {}

   [[nodiscard]] std::string name() const override { return "worker"; }
   [[nodiscard]] Kel::TypeInfo const & kelTypeInfo() const override { return kelType(); }

   void jobIs( int job ) {
      updatesSeenInc();
      if( std::ranges::find( jobs, job ) == jobs.end() ) jobs.push_back( job );
      clockNotifieeTimeMinIs( 0 );
   }
   [[nodiscard]] uint64_t backlogSize() const override { return jobs.size(); }
   uint64_t processBacklog( Kel::Seconds & startTime ) override {
      uint64_t count = 0;
      while( !jobs.empty() && ( count == 0 || codefClock()->now() < startTime + backlogQuantum() ) ) {
         int const job = jobs.front();
         jobs.pop_front();
         done.push_back( job );
         ++count;
         if( onJob ) onJob( job );
      }
      return count;
   }

   std::deque<int> jobs;
   std::vector<int> done;
   std::function<void( int )> onJob;
};

using Jobs = std::vector<int>;

class CodefStory : public testing::Test {
 protected:
   // Each fresh read takes 10 ms; the start of the turn is one such read.
   Kel::Ptr<Kel::Clock> const clock = new Kel::VirtualClock( 1000, 0.01 );
   Kel::ActivityLoop loop{ clock };
   Kel::Ptr<Worker> worker = new Worker( clock );

   void queue( int jobs ) {
      for( int job = 1; job <= jobs; ++job ) worker->jobIs( job );
   }
};

TEST_F( CodefStory, theStatisticsAddUp ) {
   EXPECT_EQ( worker->backlogQuantum(), 0.05 );
   queue( 4 );
   queue( 2 );  // both already there
   worker->backlogQuantumIs( 0.015 );
   loop.turn();
   EXPECT_EQ( worker->updatesSeen(), 6u );
   EXPECT_EQ( worker->updatesProcessed(), 2u );
   EXPECT_EQ( worker->updatesCoalesced(), 2u );  // 6 seen, 2 done, 2 still queued
   EXPECT_EQ( worker->yieldBeforeFinishingCount(), 1u );
   EXPECT_FALSE( worker->warm() );
   EXPECT_LE( loop.nextDue(), Kel::now() );
   loop.turn();
   EXPECT_EQ( worker->done, Jobs( { 1, 2, 3, 4 } ) );
   EXPECT_TRUE( worker->warm() );
   EXPECT_EQ( worker->yieldBeforeFinishingCount(), 1u );
   EXPECT_EQ( worker->dispatchCount(), 2u );
   EXPECT_EQ( loop.nextDue(), Kel::never );
   // The first slice read the clock three times after its start, the second twice.
   EXPECT_NEAR( worker->timeUsed(), 0.05, 1e-9 );
   EXPECT_EQ( worker->updatesProcessed(), 4u );
   EXPECT_EQ( worker->updatesCoalesced(), 2u );
   worker->updateWorkStats( 10, 3 );
   EXPECT_EQ( worker->updatesSeen(), 16u );
   EXPECT_EQ( worker->updatesProcessed(), 7u );
}

// Each turn brings an update before the work's phase: it must not push the work into the next turn, and so on for ever.
TEST_F( CodefStory, updatesInEveryTurnDoNotPutTheWorkOff ) {
   for( int job = 1; job <= 4; ++job ) loop.turn( [&] { worker->jobIs( job ); } );
   EXPECT_EQ( worker->done, Jobs( { 1, 2, 3, 4 } ) );
}

TEST_F( CodefStory, aRequestCanBeWithdrawnDelayedAndHastened ) {
   queue( 1 );
   worker->unscheduleCodef();
   loop.turn();
   EXPECT_EQ( worker->done, Jobs() );

   worker->scheduleCodefDelay( 5 );
   EXPECT_EQ( worker->clockNotifieeTimeMin(), Kel::now() + 5 );
   loop.turn();
   EXPECT_EQ( worker->done, Jobs() );

   worker->scheduleCodef();
   loop.turn();
   EXPECT_EQ( worker->done, Jobs( { 1 } ) );
   EXPECT_EQ( loop.nextDue(), Kel::never );
}

TEST_F( CodefStory, aMachineThatIsTakenDownDoesNoMoreWork ) {
   queue( 2 );
   worker->prepareToDie();
   loop.turn();
   EXPECT_EQ( worker->done, Jobs() );
   EXPECT_EQ( loop.nextDue(), Kel::never );
}

TEST_F( CodefStory, aMachineMayBeDroppedFromWithinItsOwnSlice ) {
   worker->onJob = [&]( int ) {
      worker->prepareToDie();
      worker = nullptr;
   };
   queue( 1 );
   loop.turn();
   EXPECT_EQ( loop.nextDue(), Kel::never );
}

}  // namespace
