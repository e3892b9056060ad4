// What a timer costs on the wheel, with 100,000 of them set for mixed periods: setting anew, and firing plus setting for the
// next period. The same work on an ordered map stands beside it for comparison. Time per item is 1 / items_per_second.
#include <benchmark/benchmark.h>

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
BENCHMARK( fireAndSet<OnWheel> );
BENCHMARK( fireAndSet<OnMap> );

}  // namespace

BENCHMARK_MAIN();
