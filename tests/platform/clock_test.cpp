// The activity loop and its clocks: what a turn runs and in which order, what waits for a later one, and that reactors
// may be cancelled, set anew and destroyed from any handler.
#include "kel/Clock.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kel/ActivityLoop.h"

namespace {

using Action = std::function<void()>;

class Timer final : public Kel::Clock::NotifieeConst {
 public:
   explicit Timer( Action action ) : NotifieeConst( Kel::activityLoop().clock() ), action_( std::move( action ) ) {}
   Timer( Kel::PtrInterface const & owner, Action action )
      : NotifieeConst( Kel::activityLoop().clock(), owner ), action_( std::move( action ) ) {}
   void onTimeMin() override {
      auto const action = action_;  // the action may destroy this
      action();
   }

 private:
   Action const action_;
};

class Later final : public Kel::Deferred {
 public:
   explicit Later( Action action ) : action_( std::move( action ) ) {}
   void onTimeMin() override { action_(); }

 private:
   Action const action_;
};

class LoopStory : public testing::Test {
 protected:
   Action say( char const * what ) {
      return [this, what] { said.emplace_back( what ); };
   }
   // What was said since the last time this was asked.
   std::vector<std::string> heard() { return std::exchange( said, {} ); }
   void turnAt( double t ) {
      clock->nowIs( t );
      loop.turn();
   }
   using Words = std::vector<std::string>;

   Kel::Ptr<Kel::VirtualClock> const clock = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop{ clock };
   Words said;
};

TEST_F( LoopStory, timersRunBeforeDeferredWorkAndBothByTimeThenByOrderOfSetting ) {
   Later laterSecond( say( "work at 6, set first" ) ), laterFirst( say( "work at 5" ) );
   Timer third( say( "timer at 8" ) ), first( say( "timer at 7, set first" ) ), second( say( "timer at 7" ) );
   laterSecond.timeMinIs( 1006 );
   laterFirst.timeMinIs( 1005 );
   third.timeMinIs( 1008 );
   first.timeMinIs( 1007 );
   second.timeMinIs( 1007 );
   EXPECT_EQ( loop.nextDue(), 1005 );
   clock->nowIs( 1008 );
   loop.turn( say( "the turn's work" ) );
   EXPECT_EQ( heard(), Words( { "the turn's work", "timer at 7, set first", "timer at 7", "timer at 8", "work at 5",
                                "work at 6, set first" } ) );
   EXPECT_EQ( loop.nextDue(), Kel::never );
}

TEST_F( LoopStory, whatATurnAsksForWaitsForALaterTurnAlsoForThePast ) {
   Later later( say( "later" ) );
   Timer again( [&] {
      said.emplace_back( "again" );
      again.timeMinIs( 0 );
      if( loop.turnNumber() == 2 ) later.timeMinIs( 0 );
   } );
   clock->nowIs( 1001 );
   loop.turn( [&] { again.timeMinIs( 1000 ); } );
   EXPECT_EQ( heard(), Words() );
   loop.turn();
   EXPECT_EQ( heard(), Words( { "again" } ) );
   loop.turn();  // at the same time
   EXPECT_EQ( heard(), Words( { "again", "later" } ) );
}

TEST_F( LoopStory, timeStandsStillWithinATurnAndTurnsAreNumbered ) {
   EXPECT_EQ( Kel::now(), 1000 );
   EXPECT_EQ( loop.turnNumber(), 0u );
   clock->nowIs( 1003 );
   EXPECT_EQ( Kel::now(), 1000 );
   loop.turn( [&] {
      EXPECT_TRUE( loop.inTurn() );
      clock->nowIs( 1004 );
      EXPECT_EQ( Kel::now(), 1003 );
   } );
   EXPECT_FALSE( loop.inTurn() );
   EXPECT_EQ( loop.turnNumber(), 1u );
   EXPECT_EQ( Kel::activityManager().config().clock()->now(), 1004 );
   EXPECT_DEATH( loop.turn( [&] { loop.turn(); } ), "inTurn_" );
}

TEST_F( LoopStory, aHandlerMayCancelMoveOrDestroyASiblingDueInTheSameTurn ) {
   Timer cancelled( say( "cancelled" ) ), moved( say( "moved" ) );
   auto destroyed = std::make_unique<Timer>( say( "destroyed" ) );
   std::unique_ptr<Timer> itself = std::make_unique<Timer>( [&] { itself.reset(); } );
   Timer killer( [&] {
      cancelled.timeMinIs( Kel::never );
      moved.timeMinIs( 0 );
      destroyed.reset();
   } );
   killer.timeMinIs( 1000 );
   for( Timer * t : { &cancelled, &moved, destroyed.get(), itself.get() } ) t->timeMinIs( 1001 );
   turnAt( 1002 );
   EXPECT_EQ( heard(), Words() );
   EXPECT_EQ( itself, nullptr );
   loop.turn();
   EXPECT_EQ( heard(), Words( { "moved" } ) );
}

TEST_F( LoopStory, aSilentTimerThatComesDueIsDropped ) {
   struct Machine : Kel::PtrInterface {
   } owner;
   Timer timer( owner, say( "heard" ) );
   struct {
      char const * silence;
      Action begin, end;
   } const cases[] = {
      { "itself off", [&] { timer.hasNotificationActiveIs( false ); }, [&] { timer.hasNotificationActiveIs( true ); } },
      { "owner off", [&] { owner.hasNotificationActiveIs( false ); }, [&] { owner.hasNotificationActiveIs( true ); } },
      { "owner a zombie", [&] { owner.kelDoZombieReactors( true ); }, [&] { owner.kelDoZombieReactors( false ); } },
   };
   for( auto const & c : cases ) {
      SCOPED_TRACE( c.silence );
      timer.timeMinIs( 0 );
      c.begin();
      loop.turn();
      c.end();
      EXPECT_EQ( timer.timeMin(), Kel::never );
      loop.turn();
      EXPECT_EQ( heard(), Words() );
   }
   timer.timeMinIs( 0 );
   loop.turn();
   EXPECT_EQ( heard(), Words( { "heard" } ) );
}

TEST_F( LoopStory, whatAnExceptionKeptFromRunningRunsInTheNextTurnInItsOrder ) {
   Timer bad( [] { throw std::runtime_error( "bad record" ); } ), second( say( "second" ) ), third( say( "third" ) );
   Later work( say( "work" ) );
   bad.timeMinIs( 1001 );
   third.timeMinIs( 1003 );
   work.timeMinIs( 1001 );
   clock->nowIs( 1005 );
   EXPECT_THROW( loop.turn(), std::runtime_error );
   EXPECT_FALSE( loop.inTurn() );
   EXPECT_EQ( heard(), Words() );
   second.timeMinIs( 1002 );
   EXPECT_EQ( loop.nextDue(), 1001 );
   loop.turn();
   EXPECT_EQ( heard(), Words( { "second", "third", "work" } ) );
}

TEST( Loop, reactorsOutliveTheirLoop ) {
   Kel::Ptr<Kel::Clock> const clock = new Kel::VirtualClock( 5 );
   auto loop = std::make_unique<Kel::ActivityLoop>( clock );
   EXPECT_DEATH( Kel::ActivityLoop{ clock }, "current_" );
   int runs = 0;
   Timer timer( [&] { ++runs; } );
   timer.timeMinIs( 1 );
   loop.reset();
   EXPECT_EQ( timer.timeMin(), Kel::never );
   EXPECT_DEATH( timer.timeMinIs( 1 ), "current_" );
   loop = std::make_unique<Kel::ActivityLoop>( clock );
   loop->turn();
   EXPECT_EQ( runs, 0 );
   timer.timeMinIs( 1 );
   loop->turn();
   EXPECT_EQ( runs, 1 );
}

}  // namespace
