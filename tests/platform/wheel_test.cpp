// The timer wheel: on which tick a timer fires and in which order, whatever happens in the handlers, however late the
// loop is and however far away the time. The last test plays random operations against an ordered map.
#include "brim/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {
std::size_t allocations = 0;
}

[[gnu::noinline]] void * operator new( std::size_t bytes ) {
   ++allocations;
   if( void * const memory = std::malloc( bytes ) ) return memory;
   throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete( void * memory ) noexcept { std::free( memory ); }
[[gnu::noinline]] void operator delete( void * memory, std::size_t ) noexcept { std::free( memory ); }

namespace {

using Brim::TimerWheel;
using Action = std::function<void()>;
using Times = std::vector<double>;

class Alarm final : public TimerWheel::NotifieeConst {
 public:
   explicit Alarm( Kel::Ptr<TimerWheel> const & wheel, Action action = {} )
      : NotifieeConst( wheel ), action_( std::move( action ) ) {}
   Alarm( Kel::Ptr<TimerWheel> const & wheel, Kel::PtrInterface const & owner ) : NotifieeConst( wheel, owner ) {}
   void onTime() override {
      EXPECT_EQ( timeMin(), Kel::never );
      if( action_ ) {
         auto const action = action_;  // the action may destroy this
         action();
      } else {
         fired.push_back( Kel::now() );
      }
   }

   Times fired;

 private:
   Action const action_;
};

// The wheel is made at time 1000, so tick n is at 1000 + n.
class WheelStory : public testing::Test {
 protected:
   static constexpr double start = 1000;

   Kel::Ptr<TimerWheel> newWheel( uint32_t span ) {
      return TimerWheel::TimerWheelIs( nullptr, clock, 1000, span, true, 1024 );
   }
   void advanceTo( double seconds ) { loop.runUntil( *clock, start + seconds ); }
   // The loop was held up until now.
   void lateTurnAt( double seconds ) {
      clock->nowIs( start + seconds );
      loop.turn();
   }
   Action say( char const * what ) {
      return [this, what] { said.emplace_back( what ); };
   }
   using Words = std::vector<std::string>;

   Kel::Ptr<Kel::VirtualClock> const clock = new Kel::VirtualClock( start );
   Kel::ActivityLoop loop{ clock };
   Kel::Ptr<TimerWheel> wheel = newWheel( 1800 );
   Words said;
};

TEST_F( WheelStory, aTimerFiresOnTheFirstTickThatServesItsTime ) {
   struct {
      double set, fires;
   } const cases[] = {
      { -5, 1 },          { 0, 1 },           { 0.00001, 1 },       { 1, 1 },
      { 1.0000009, 1 },   { 1.0000011, 2 },   { 1.1, 2 },           { 1.999, 2 },
      { 2, 2 },           { 2047, 2047 },     { 2047.01, 2048 },    { 2048, 2048 },
      { 2049, 2049 },     { 4095, 4095 },     { 4096, 4096 },       { 131071, 131071 },
      { 131072, 131072 }, { 131073, 131073 }, { 8388608, 8388608 }, { 8388608.00001, 8388609 },
   };
   std::vector<std::unique_ptr<Alarm>> alarms;
   for( auto const & c : cases ) {
      alarms.push_back( std::make_unique<Alarm>( wheel ) );
      alarms.back()->timeMinIs( start + c.set );
      EXPECT_EQ( alarms.back()->timeMin(), start + c.set );
   }
   advanceTo( 1e7 );
   for( std::size_t i = 0; i < alarms.size(); ++i ) {
      EXPECT_EQ( alarms[i]->fired, Times( { start + cases[i].fires } ) ) << "set for " << cases[i].set;
   }
}

// The times of 100 ms ticks are rounded; a tick must neither come a rounding error early nor be counted twice, and
// whoever adds up the time of a tick in another way must not miss it.
TEST_F( WheelStory, ticksCountFromTheCreationAndAreExactWhereTheirTimesRound ) {
   lateTurnAt( 0.3 );
   wheel = TimerWheel::TimerWheelIs( nullptr, clock, 100, 1, true, 1024 );
   auto const tick = [created = Kel::now()]( int n ) { return created + n * 0.1; };
   auto const justBefore = []( double t ) { return std::nextafter( t, 0 ); };
   Alarm previous( wheel ), roundedUp( wheel ), after( wheel ), forNow( wheel );
   for( int n = 2; n < 10'000'000; n += 7 + n / 200 ) {
      SCOPED_TRACE( n );
      previous.timeMinIs( tick( n - 1 ) );
      roundedUp.timeMinIs( tick( n ) + 5e-8 );
      after.timeMinIs( tick( n ) + 1.1e-6 );
      lateTurnAt( justBefore( tick( n ) ) - start );
      loop.runUntil( *clock, tick( n + 1 ) );
      ASSERT_EQ( previous.fired.back(), justBefore( tick( n ) ) );
      ASSERT_EQ( roundedUp.fired.back(), tick( n ) );
      ASSERT_EQ( after.fired.back(), tick( n + 1 ) );

      lateTurnAt( tick( n + 2 ) - start );
      forNow.timeMinIs( Kel::now() );
      loop.runUntil( *clock, tick( n + 3 ) );
      ASSERT_EQ( forNow.fired.back(), tick( n + 3 ) );
      lateTurnAt( justBefore( tick( n + 4 ) ) - start );
      forNow.timeMinIs( Kel::now() );
      loop.runUntil( *clock, tick( n + 4 ) );
      ASSERT_EQ( forNow.fired.back(), tick( n + 4 ) );
   }
}

// Ticks that come late by up to 1/8 tick must not make a period slip by a tick each time, whatever the clock counts
// from.
TEST_F( WheelStory, aLateLoopKeepsThePeriod ) {
   std::mt19937 random( 4711 );
   std::function<double()> const latenesses[] = {
      [] { return 0.0; },
      [] { return 0.003; },
      [] { return 0.12; },
      [&] { return std::uniform_real_distribution( 0.0, 0.12 )( random ); },
      [n = 0]() mutable { return ++n % 3 ? 0.0001 : 0.11; },
   };
   for( double const epoch : { 1234.567, 1.7e9 + 0.1 } ) {
      clock->nowIs( epoch );
      for( auto const & lateness : latenesses ) {
         loop.turn();
         wheel = newWheel( 1800 );
         double const begin = Kel::now();
         int samples = 0;
         Alarm sampler( wheel, [&] {
            ++samples;
            sampler.timeMinIs( Kel::now() + 10 );
         } );
         sampler.timeMinIs( begin + 10 );
         while( loop.nextDue() <= begin + 3600 ) {
            clock->nowIs( std::max( clock->now(), loop.nextDue() ) + lateness() );
            loop.turn();
         }
         EXPECT_EQ( samples, 360 );
      }
   }
}

TEST_F( WheelStory, aSilentTimerThatComesDueIsDropped ) {
   struct Machine : Kel::PtrInterface {
   } owner;
   Alarm alarm( wheel, owner );
   alarm.timeMinIs( start + 1 );
   owner.kelDoZombieReactors( true );
   advanceTo( 1 );
   owner.kelDoZombieReactors( false );
   EXPECT_EQ( alarm.timeMin(), Kel::never );
   alarm.timeMinIs( start + 2 );
   alarm.hasNotificationActiveIs( false );
   advanceTo( 2 );
   alarm.hasNotificationActiveIs( true );
   alarm.timeMinIs( start + 3 );
   advanceTo( 10 );
   EXPECT_EQ( alarm.fired, Times( { start + 3 } ) );
}

TEST_F( WheelStory, theWheelSleepsWhenNothingIsSetAndThroughEmptyTicks ) {
   EXPECT_EQ( loop.nextDue(), Kel::never );
   Alarm alarm( wheel );
   alarm.timeMinIs( start + 1000 );
   EXPECT_EQ( loop.nextDue(), start + 1000 );
   alarm.timeMinIs( Kel::never );
   EXPECT_EQ( loop.nextDue(), Kel::never );
   lateTurnAt( 5000 );
   alarm.timeMinIs( start + 5010 );  // some blocks later
   EXPECT_EQ( loop.nextDue(), start + 5010 );

   int fires = 0;
   Alarm hourly( wheel, [&] {
      ++fires;
      hourly.timeMinIs( Kel::now() + 3600 );
   } );
   hourly.timeMinIs( Kel::now() + 3600 );
   advanceTo( 5000 + 30 * 86400 );
   EXPECT_EQ( fires, 720 );
   // 2.6 million ticks; a fire may cost a turn each for two block beginnings.
   EXPECT_LE( loop.turnNumber(), 3u * 720u );
}

TEST_F( WheelStory, timesBeyondAllBlocksWaitTheirTurn ) {
   wheel = newWheel( 256 );  // one of those whose levels have no slot to spare beyond the last tick
   Alarm sooner( wheel, say( "1e15" ) ), atTheEnd( wheel, say( "1e18" ) ), beyond( wheel, say( "1e300" ) );
   beyond.timeMinIs( 1e300 );
   atTheEnd.timeMinIs( 1e18 );
   sooner.timeMinIs( 1e15 );
   loop.runUntil( *clock, 9e14 );
   EXPECT_EQ( said, Words() );
   loop.runUntil( *clock, 9e17 );
   EXPECT_EQ( said, Words( { "1e15" } ) );
   loop.runUntil( *clock, 1e18 );
   EXPECT_EQ( said, Words( { "1e15", "1e18" } ) );
   EXPECT_EQ( wheel->timers(), 1u );
}

// Where the clock can no longer tell one tick from the next, the wheel must still come to an end of each turn.
TEST_F( WheelStory, farTimesThatTheClockCannotTellApartStillFire ) {
   wheel = TimerWheel::TimerWheelIs( nullptr, clock, 100, 1800, true, 1024 );
   for( double t = 7.7e15; t < 1e17; t *= 1.003 ) {
      Alarm alarm( wheel );
      alarm.timeMinIs( t );
      loop.runUntil( *clock, t + 1000 );
      ASSERT_EQ( alarm.fired.size(), 1u ) << t;
      ASSERT_NEAR( alarm.fired.front(), t, 1000 );
   }
}

TEST_F( WheelStory, aWheelLivesAsLongAsItsTimers ) {
   std::unique_ptr<Alarm> last = std::make_unique<Alarm>( wheel, [&] {
      said.emplace_back( "last" );
      last.reset();  // and with it the wheel, while it delivers
   } );
   last->timeMinIs( start + 3 );
   wheel = nullptr;
   advanceTo( 10 );
   EXPECT_EQ( said, Words( { "last" } ) );
   EXPECT_EQ( loop.nextDue(), Kel::never );
}

// More than the wheel keeps room for: cancelled timers are taken out of the slots, and those that remain keep their
// order.
TEST_F( WheelStory, manyCancelledTimersLeaveTheOthersInOrder ) {
   constexpr int count = 2000;
   std::vector<int> fired, expected;
   std::vector<std::unique_ptr<Alarm>> alarms;
   for( int i = 0; i < count; ++i ) {
      alarms.push_back( std::make_unique<Alarm>( wheel, [&fired, i] { fired.push_back( i ); } ) );
      alarms.back()->timeMinIs( start + ( i % 3 == 0 ? 5 : 10'000 ) );
   }
   for( double const tick : { 5, 10'000 } ) {
      expected.clear();
      for( int i = 0; i < count; ++i ) {
         bool const here = ( i % 3 == 0 ) == ( tick == 5 );
         if( here && i % 10 == 0 ) expected.push_back( i );
         if( here && i % 10 != 0 ) alarms[static_cast<std::size_t>( i )]->timeMinIs( Kel::never );
      }
      fired.clear();
      advanceTo( tick );
      EXPECT_EQ( fired, expected );
   }
   EXPECT_EQ( wheel->timers(), 0u );
}

TEST_F( WheelStory, whatAnExceptionKeptFromFiringFiresInTheNextTurn ) {
   Alarm bad( wheel, [] { throw std::runtime_error( "bad record" ); } ), same( wheel, say( "same tick" ) );
   Alarm next( wheel, say( "next tick" ) );
   bad.timeMinIs( start + 3 );
   same.timeMinIs( start + 3 );
   EXPECT_THROW( advanceTo( 10 ), std::runtime_error );
   next.timeMinIs( start + 4 );
   advanceTo( 3 );
   EXPECT_EQ( said, Words( { "same tick" } ) );
   advanceTo( 4 );
   EXPECT_EQ( said, Words( { "same tick", "next tick" } ) );
}

TEST_F( WheelStory, aTimerSetOverAndOverTakesNoMoreMemory ) {
   Alarm kept( wheel, [] {} ), restless( wheel, [] {} );
   auto const setOften = [&] {
      for( int i = 0; i < 1000; ++i ) restless.timeMinIs( Kel::now() + 5000 + i % 2 );
   };
   Alarm inAHandler( wheel, [&] {
      setOften();
      inAHandler.timeMinIs( Kel::now() + 1 );
   } );
   kept.timeMinIs( start + 1e6 );
   inAHandler.timeMinIs( start + 1 );
   advanceTo( 10 );
   std::size_t const before = allocations;
   for( int i = 0; i < 100; ++i ) setOften();
   advanceTo( 110 );
   EXPECT_EQ( allocations, before );
}

// Random life of a few hundred timers; what must come next is the first entry of a map ordered by tick and setting.
class WheelModel : public WheelStory, public testing::WithParamInterface<uint32_t> {
 protected:
   static constexpr int timers = 300;

   void TearDown() override { alarms.clear(); }

   int pick( int n ) { return std::uniform_int_distribution( 0, n - 1 )( random ); }

   // Times in sixteenths of a second, from a little in the past to far beyond several levels.
   double time() {
      double const reach = std::exp2( std::uniform_real_distribution( 0.0, pick( 4 ) ? 12.0 : 40.0 )( random ) );
      return Kel::now() + std::floor( std::uniform_real_distribution( -0.2, 1.0 )( random ) * reach * 16 ) / 16;
   }
   void set( std::size_t i, double t ) {
      unset( i );
      alarms[i]->timeMinIs( t );
      double const lent = firing ? std::min( Kel::now() - start - passed, 0.125 ) : 0;
      double const serving = std::ceil( t - lent - start );
      place[i] = { std::max( serving, passed + 1 ), ++settings };
      expected[place[i]] = i;
   }
   void unset( std::size_t i ) {
      expected.erase( place[i] );
      alarms[i]->timeMinIs( Kel::never );
   }
   void renew( std::size_t i ) {
      expected.erase( place[i] );
      alarms[i] = std::make_unique<Alarm>( wheel, [this, i] { onFire( i ); } );
   }
   void operate() {
      auto const i = static_cast<std::size_t>( pick( timers ) );
      int const what = pick( 10 );
      if( what < 7 ) return set( i, time() );
      if( what < 9 ) return unset( i );
      renew( i );
   }
   void onFire( std::size_t i ) {
      ASSERT_FALSE( expected.empty() );
      auto const [due, next] = *expected.begin();
      ASSERT_EQ( i, next );
      ASSERT_LE( start + due.first, Kel::now() );
      ASSERT_TRUE( late || start + due.first == Kel::now() );
      expected.erase( expected.begin() );
      passed = due.first;
      ++fires;
      firing = true;
      for( int n = pick( 4 ); n > 0; --n ) operate();
      firing = false;
   }
   // On time, or in one late turn.
   void advance() {
      double const target = clock->now() + std::floor( std::exp2( pick( 12 ) ) * pick( 32 ) ) / 16;
      late = pick( 2 ) == 0;
      if( late ) {
         lateTurnAt( target - start );
      } else {
         loop.runUntil( *clock, target );
         loop.turn();
      }
      passed = std::floor( Kel::now() - start );
      ASSERT_TRUE( expected.empty() || expected.begin()->first.first > passed );
      ASSERT_EQ( wheel->timers(), expected.size() );
   }

   using Place = std::pair<double, int>;  // tick, number of the setting

   unsigned const seed = std::random_device()();
   std::mt19937 random{ seed };
   std::vector<std::unique_ptr<Alarm>> alarms{ timers };
   std::map<Place, std::size_t> expected;
   std::vector<Place> place{ timers };
   double passed = 0;  // the tick before the earliest that a timer set now can have
   int settings = 0;
   int fires = 0;
   bool firing = false;  // a handler runs, in the tick `passed`
   bool late = false;
};

TEST_P( WheelModel, randomOperationsFireAsInAnOrderedMap ) {
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   wheel = newWheel( GetParam() );
   for( std::size_t i = 0; i < timers; ++i ) renew( i );
   for( int round = 0; round < 3000 && !HasFatalFailure(); ++round ) {
      for( int n = pick( 20 ); n > 0; --n ) operate();
      advance();
   }
   EXPECT_GT( fires, 10000 );
}

INSTANTIATE_TEST_SUITE_P( Spans, WheelModel, testing::Values( 1, 8, 64, 100, 1800 ) );

}  // namespace
