// What a timer costs on the wheel, with 100,000 of them set for mixed periods: setting anew, and firing plus setting
// for the next period. The same work on an ordered map, on Boost.Asio's timers and on a bare hashed wheel, the least
// that it can cost, stands beside it. Time per item is 1 / items_per_second.
#include <benchmark/benchmark.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "brim/TimerWheel.h"

namespace {

constexpr std::size_t timerCount = 100'000;

// Most interfaces are sampled every 5 to 60 s; one in a hundred waits much longer.
double newPeriod( std::mt19937 & random ) {
   bool const slow = std::uniform_int_distribution( 0, 99 )( random ) == 0;
   return slow ? std::uniform_int_distribution( 1800, 86400 )( random )
               : std::uniform_int_distribution( 5, 60 )( random );
}

struct OnWheel {
   class Timer final : public Brim::TimerWheel::NotifieeConst {
    public:
      Timer( OnWheel & owner, double period ) : NotifieeConst( owner.wheel ), owner_( owner ), period_( period ) {}
      void onTime() override {
         ++owner_.fires;
         set();
      }
      void set() { timeMinIs( Kel::now() + period_ ); }

    private:
      OnWheel & owner_;
      double const period_;
   };

   OnWheel() {
      std::mt19937 random( 1 );
      for( std::size_t i = 0; i < timerCount; ++i ) {
         timers.push_back( std::make_unique<Timer>( *this, newPeriod( random ) ) );
         timers.back()->set();
      }
   }
   void set( std::size_t i ) { timers[i]->set(); }
   void secondPasses() { loop.runUntil( *clock, clock->now() + 1 ); }

   Kel::Ptr<Kel::VirtualClock> const clock = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop{ clock };
   Kel::Ptr<Brim::TimerWheel> const wheel = Brim::TimerWheel::TimerWheelIs( nullptr, clock, 1000, 1800, true, 1024 );
   std::vector<std::unique_ptr<Timer>> timers;
   int64_t fires = 0;
};

struct OnMap {
   struct Timer {
      double period;
      std::multimap<double, std::size_t>::iterator place;
   };

   OnMap() {
      std::mt19937 random( 1 );
      for( std::size_t i = 0; i < timerCount; ++i ) {
         double const period = newPeriod( random );
         timers.push_back( { period, due.emplace( now + period, i ) } );
      }
   }
   void set( std::size_t i ) {
      auto node = due.extract( timers[i].place );
      node.key() = now + timers[i].period;
      timers[i].place = due.insert( std::move( node ) );
   }
   void secondPasses() {
      for( now += 1; due.begin()->first <= now; ++fires ) set( due.begin()->second );
   }

   double now = 1000;
   std::multimap<double, std::size_t> due;
   std::vector<Timer> timers;
   int64_t fires = 0;
};

// Boost.Asio's timers on the real clock, with periods a million times shorter: there is always one that is due, so that
// no time is spent waiting. An iteration fires a thousand.
struct OnAsio {
   struct Timer {
      std::chrono::nanoseconds period;
      boost::asio::steady_timer wait;
   };

   OnAsio() {
      std::mt19937 random( 1 );
      timers.reserve( timerCount );
      for( std::size_t i = 0; i < timerCount; ++i ) {
         auto const period = std::chrono::nanoseconds( static_cast<int64_t>( newPeriod( random ) * 1e3 ) );
         timers.push_back( { period, boost::asio::steady_timer( io ) } );
         set( i );
      }
   }
   void set( std::size_t i ) {
      timers[i].wait.expires_after( timers[i].period );
      timers[i].wait.async_wait( [this, i]( boost::system::error_code error ) {
         if( error ) return;
         ++fires;
         set( i );
      } );
   }
   void secondPasses() {
      for( int n = 0; n < 1000; ++n ) io.run_one();
   }

   boost::asio::io_context io{ 1 };
   std::vector<Timer> timers;
   int64_t fires = 0;
};

// One slot for each second of more than a day, each a ring of timers; nothing else.
struct OnBareWheel {
   struct Link {
      Link * prev = this;
      Link * next = this;
   };
   struct Timer : Link {
      uint64_t period = 0;  // ticks
   };

   OnBareWheel() {
      std::mt19937 random( 1 );
      for( std::size_t i = 0; i < timerCount; ++i ) {
         timers[i].period = static_cast<uint64_t>( newPeriod( random ) );
         insert( timers[i] );
      }
   }
   void insert( Timer & timer ) {
      Link & slot = slots[( tick + timer.period ) % slots.size()];
      timer.prev = slot.prev;
      timer.next = &slot;
      slot.prev->next = &timer;
      slot.prev = &timer;
   }
   void set( std::size_t i ) {
      remove( timers[i] );
      insert( timers[i] );
   }
   void secondPasses() {
      Link & slot = slots[++tick % slots.size()];
      while( slot.next != &slot ) {
         auto & timer = static_cast<Timer &>( *slot.next );
         remove( timer );
         ++fires;
         insert( timer );
      }
   }
   static void remove( Timer & timer ) {
      timer.prev->next = timer.next;
      timer.next->prev = timer.prev;
   }

   uint64_t tick = 0;
   std::vector<Link> slots = std::vector<Link>( 1 << 17 );
   std::vector<Timer> timers = std::vector<Timer>( timerCount );
   int64_t fires = 0;
};

template<class Timers>
void setAnew( benchmark::State & state ) {
   Timers timers;
   std::mt19937 random( 2 );
   std::vector<std::size_t> order( timerCount );
   for( auto & i : order ) i = std::uniform_int_distribution<std::size_t>( 0, timerCount - 1 )( random );
   std::size_t n = 0;
   for( auto _ : state ) timers.set( order[n++ % timerCount] );
   state.SetItemsProcessed( state.iterations() );
}

template<class Timers>
void fireAndSet( benchmark::State & state ) {
   Timers timers;
   for( auto _ : state ) timers.secondPasses();
   state.SetItemsProcessed( timers.fires );
}

BENCHMARK( setAnew<OnWheel> );
BENCHMARK( setAnew<OnMap> );
BENCHMARK( setAnew<OnBareWheel> );
BENCHMARK( fireAndSet<OnWheel> );
BENCHMARK( fireAndSet<OnMap> );
BENCHMARK( fireAndSet<OnAsio> );
BENCHMARK( fireAndSet<OnBareWheel> );

}  // namespace
