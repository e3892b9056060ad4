// What a burst of membership changes costs: the unit of N interfaces enters maintenance, leaves it, has its group
// replaced by N other interfaces while it enters, or a link event strikes all of them. The box is the simulator's:
// service, link control and plug-in as maintd has them, without kernel, socket and disk.
//
// An iteration is the request and every turn that is due after it, up to the last monitor that starts or stops. The
// clock does not move, so nothing is sampled but the first time, and the plug-in's backlog is worked off in one slice.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "maintenance/MaintenanceService.h"
#include "world/World.h"

namespace {

using Lumo::IntfId;

// Modules of 32 ports: Ethernet1/1 to Ethernet1/32, Ethernet2/1, ...
IntfId port( int64_t i ) {
   return IntfId( "Ethernet" + std::to_string( i / 32 + 1 ) + "/" + std::to_string( i % 32 + 1 ) );
}

Sim::InventedLinks::Said stateOf( bool up ) {
   Sim::InventedLinks::Said said;
   said.up = up;
   return said;
}

class Box {
 public:
   // All links are there and up, also those of the other half, which no group has yet.
   explicit Box( int64_t intfs ) : intfs_( intfs ), config_{ config( 0 ), config( intfs ) } {
      world_.inTurn( [this] {
         for( int64_t i = 0; i < 2 * intfs_; ++i ) world_.links().linkIs( port( i ), stateOf( true ) );
         world_.agent().configIs( config_[0] );
         world_.start();
      } );
   }

   // Not inlined, so that a profiler can be told to count in these only.
   [[gnu::noinline]] void enters() {
      world_.inTurn( [this] { world_.agent().service()->units().enter( "fabric", {}, "bench" ); } );
   }
   [[gnu::noinline]] void leaves() {
      world_.inTurn( [this] { world_.agent().service()->units().exit( "fabric", "bench" ); } );
   }
   [[gnu::noinline]] void groupIsReplaced() {
      present_ = 1 - present_;
      world_.inTurn( [this] { world_.agent().configIs( config_[present_] ); } );
   }
   [[gnu::noinline]] void allLinksAre( bool up ) {
      world_.inTurn( [=, this] {
         for( int64_t i = 0; i < intfs_; ++i ) world_.links().linkIs( port( present_ * intfs_ + i ), stateOf( up ) );
      } );
   }

   [[nodiscard]] int64_t monitored() const {
      return static_cast<int64_t>( world_.state().monIntfStatus->monIntfStatuss() );
   }
   // Its interfaces are monitored, and they are those that it has now.
   [[nodiscard]] bool allMonitored() const {
      auto const & monitors = *world_.state().monIntfStatus;
      int64_t const first = present_ * intfs_;
      return monitored() == intfs_ && monitors.monIntfStatus( port( first ) ) &&
             monitors.monIntfStatus( port( first + intfs_ - 1 ) );
   }

 private:
   [[nodiscard]] static Service::Config::Config config( int64_t first, int64_t count );
   [[nodiscard]] Service::Config::Config config( int64_t first ) const { return config( first, intfs_ ); }

   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   int64_t const intfs_;
   Service::Config::Config const config_[2];
   int64_t present_ = 0;  // which of them
};

Service::Config::Config Box::config( int64_t first, int64_t count ) {
   std::string text =
      "profiles: { p: { threshold: 1kbps, sample-interval: 10s, load-interval: 60s } }\n"
      "default-profile: p\nunits: { fabric: { groups: [all] } }\ngroups:\n  all:\n    interfaces:\n";
   for( int64_t i = first; i < first + count; ++i ) text += "    - " + std::string( port( i ).name() ) + "\n";
   return Service::Config::parse( text, "bench" );
}

void timePerIntf( benchmark::State & state ) {
   state.counters["time/intf"] = benchmark::Counter( static_cast<double>( state.iterations() * state.range() ),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
}

// Runs `burst` as often as wanted, and `back` unmeasured after each; `good` tells whether the burst has had its effect.
void measure( benchmark::State & state, Box & box, auto const & burst, auto const & good, auto const & back ) {
   for( auto _ : state ) {
      burst( box );
      state.PauseTiming();
      if( !good( box ) ) state.SkipWithError( "not the monitors that should be there" );
      back( box );
      state.ResumeTiming();
   }
   timePerIntf( state );
}

bool monitorsAll( Box const & box ) { return box.allMonitored(); }
bool monitorsNone( Box const & box ) { return box.monitored() == 0; }

void unitEnters( benchmark::State & state ) {
   Box box( state.range() );
   measure(
      state, box, []( Box & b ) { b.enters(); }, monitorsAll, []( Box & b ) { b.leaves(); } );
}

void unitLeaves( benchmark::State & state ) {
   Box box( state.range() );
   box.enters();
   measure(
      state, box, []( Box & b ) { b.leaves(); }, monitorsNone, []( Box & b ) { b.enters(); } );
}

void groupIsReplaced( benchmark::State & state ) {
   Box box( state.range() );
   box.enters();
   measure(
      state, box, []( Box & b ) { b.groupIsReplaced(); }, monitorsAll, []( Box & ) {} );
}

void linksGoDown( benchmark::State & state ) {
   Box box( state.range() );
   box.enters();
   measure(
      state, box, []( Box & b ) { b.allLinksAre( false ); }, monitorsNone, []( Box & b ) { b.allLinksAre( true ); } );
}

void linksComeUp( benchmark::State & state ) {
   Box box( state.range() );
   box.enters();
   box.allLinksAre( false );
   measure(
      state, box, []( Box & b ) { b.allLinksAre( true ); }, monitorsAll, []( Box & b ) { b.allLinksAre( false ); } );
}

#define RATEMON_SIZES ->Arg( 1000 )->Arg( 4000 )->Unit( benchmark::kMillisecond )
BENCHMARK( unitEnters ) RATEMON_SIZES;
BENCHMARK( unitLeaves ) RATEMON_SIZES;
BENCHMARK( groupIsReplaced ) RATEMON_SIZES;
BENCHMARK( linksGoDown ) RATEMON_SIZES;
BENCHMARK( linksComeUp ) RATEMON_SIZES;

}  // namespace
