// What the store costs: a start with all that an earlier maintd has kept, the end of a turn that changed one record,
// the writes of samples to records that are followed and to such as are not, and what of them goes to disk now and
// then.
//
// The box has 512 links in one unit, of which 200 are held, and a window under way with as many rates of each as there
// is room for; besides, so many windows of earlier stays, each as big, as the argument says. `bytes` is the size of the
// store's file. The commit is synchronous, so it is the disk of the temporary directory that is measured.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Windows.h"
#include "kel/ActivityLoop.h"
#include "kel/Assert.h"
#include "kel/Dir.h"
#include "links/HeldLinks.h"
#include "records/Errdisable.h"
#include "records/Names.h"
#include "state/MaintenanceState.h"
#include "store/Keeper.h"

namespace {

constexpr int links = 512;
constexpr int heldLinks = 200;
constexpr int cells = 60'000 / links;

struct StoredBox {
   Kel::Ptr<Dovra::EntityManager> database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
};

Lumo::IntfId intf( int i ) { return Lumo::IntfId::declare( "eth" + std::to_string( i ), Lumo::IntfKind::ethernet ); }

Kel::Ptr<Evidence::Window> window( int number ) {
   Kel::Ptr<Evidence::Window> const made( new Evidence::Window( "fabric#" + std::to_string( number ) ) );
   for( int i = 0; i < links; ++i ) {
      auto const record = made->intfIs( intf( i ) );
      for( int c = 0; c < cells; ++c ) {
         double const rate = 1e6 / 3 * ( i + c + 1 );
         record->rateIs( { 10.1 * c, 10.1 * c + 10.1, rate / 2, rate, 2 * rate, rate / 3, rate / 5, rate / 7 } );
      }
   }
   return made;
}

void fill( StoredBox & box, int earlier ) {
   auto const windows = Evidence::windowDir( *box.database );
   for( int n = 1; n <= earlier; ++n ) windows->windowIs( window( n ) )->outcomeIs( Evidence::Outcome::completed );
   windows->windowIs( window( earlier + 1 ) );
   Kel::Ptr<Errdisable::CauseStatus> const cause(
      new Errdisable::CauseStatus( Kel::Name( Maintenance::shutdownCause ) ) );
   box.state.errdisableCauses->entityIs( cause );
   auto const held = Service::heldLinkDir( *box.database );
   for( int i = 0; i < links; ++i ) {
      auto const status = box.state.monIntfStatus->monIntfStatusIs( intf( i ), "uplink", 12345.678 );
      status->curRatesIs( { 1e5 / 3, 1e5 / 7, 23456.789 } );
      box.state.monIntfStatus->monIntfUnderMaintIs( intf( i ), true );
      if( i >= heldLinks ) continue;
      held->heldIs( intf( i ) )->indexIs( i + 1 );
      cause->intfStatusIs( intf( i ), 12345.678 );
   }
   box.state.unitStatus->statusIs( "fabric" )->stateIs( Maintenance::Unit::State::inMaintenance );
}

// A store with all of it, and its keeper while it is open.
class Kept {
 public:
   explicit Kept( int earlier ) {
      std::string pattern = ( std::filesystem::temp_directory_path() / "store-bench-XXXXXX" ).string();
      directory_ = mkdtemp( pattern.data() );
      open();
      loop_.turn( [&] { fill( *box_, earlier ); } );
   }
   Kept( Kept const & ) = delete;
   Kept & operator=( Kept const & ) = delete;
   ~Kept() {
      close();
      std::filesystem::remove_all( directory_ );
   }

   void open() {
      box_.emplace();
      store_.emplace( path() );
      keeper_.emplace(
         Keeper::Parts{ box_->database, *store_, []( auto const & ) {}, {}, [] { return 1e9; }, "boot" } );
   }
   void close() {
      keeper_.reset();
      store_.reset();
      box_.reset();
   }
   [[nodiscard]] bool keep() { return keeper_->keep(); }
   StoredBox & box() { return *box_; }
   Kel::ActivityLoop & loop() { return loop_; }
   std::string path() const { return directory_ + "/maintd.db"; }

 private:
   using Keeper = Host::Keeper;
   std::string directory_;
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( new Kel::RealClock ) };
   std::optional<StoredBox> box_;
   std::optional<Host::Store> store_;
   std::optional<Keeper> keeper_;
};

void start( benchmark::State & state ) {
   Kept kept( static_cast<int>( state.range( 0 ) ) );
   kept.close();
   for( auto _ : state ) {
      kept.open();
      state.PauseTiming();
      kept.close();
      state.ResumeTiming();
   }
   state.counters["bytes"] = static_cast<double>( std::filesystem::file_size( kept.path() ) );
}
BENCHMARK( start )->Arg( 0 )->Arg( 10 )->Arg( 99 )->Unit( benchmark::kMillisecond )->UseRealTime();

void endOfATurn( benchmark::State & state ) {
   Kept kept( 0 );
   auto const unit = kept.box().state.unitStatus->status( "fabric" );
   uint32_t generation = 0;
   for( auto _ : state ) kept.loop().turn( [&] { unit->genIdIs( ++generation ); } );
}
BENCHMARK( endOfATurn )->Unit( benchmark::kMicrosecond )->UseRealTime();

// A sample writes some of a monitor's numbers, and whoever keeps the record hears of it, or nobody does.
void sampled( Maintenance::MonIntfStatus & status, double time ) {
   status.prevRatesIs( status.curRates() );
   status.curRatesIs( { time * 3, time * 5, time } );
   status.lastSampleTimeIs( time );
   status.totalSamplesInc( 1 );
   status.numConsecutiveDrainedSamplesInc( 1 );
   status.numSamplesBelowThresholdPreMaintInc( 1 );
}

// All monitors of a box, so many.
class Monitors {
 public:
   Monitors( StoredBox & box, int64_t count ) {
      for( int i = 0; i < count; ++i ) all_.push_back( box.state.monIntfStatus->monIntfStatusIs( intf( i ), "p", 1 ) );
   }
   // Not inlined, so that a profiler can be told to count in here only.
   [[gnu::noinline]] void intervalPasses() {
      time_ += 1;
      for( auto const & status : all_ ) sampled( *status, time_ );
   }

 private:
   std::vector<Kel::Ptr<Maintenance::MonIntfStatus>> all_;
   double time_ = 0;
};

benchmark::Counter timePer( benchmark::State const & state ) {
   return { static_cast<double>( state.iterations() * state.range( 0 ) ),
            benchmark::Counter::kIsRate | benchmark::Counter::kInvert };
}

void writes( benchmark::State & state ) {
   StoredBox box;
   Monitors monitors( box, state.range( 0 ) );
   for( auto _ : state ) monitors.intervalPasses();
   state.counters["time/sample"] = timePer( state );
}
BENCHMARK( writes )->Arg( 1000 );

void writesKept( benchmark::State & state ) {
   Kept kept( 0 );
   Monitors monitors( kept.box(), state.range( 0 ) );
   KEL_ASSERT( kept.keep() );
   for( auto _ : state ) monitors.intervalPasses();
   state.counters["time/sample"] = timePer( state );
}
BENCHMARK( writesKept )->Arg( 1000 );

// All that has passed since the last time, of so many monitors. The synchronous write apart.
void flush( benchmark::State & state ) {
   Kept kept( 0 );
   Monitors monitors( kept.box(), state.range( 0 ) );
   for( auto _ : state ) {
      state.PauseTiming();
      monitors.intervalPasses();
      state.ResumeTiming();
      KEL_ASSERT( kept.keep() );
   }
   state.counters["time/monitor"] = timePer( state );
}
BENCHMARK( flush )->Arg( 1000 )->Arg( 4000 )->Unit( benchmark::kMicrosecond );

// All rates of the window under way, as at the end of a stage.
void endOfAStage( benchmark::State & state ) {
   Kept kept( 0 );
   auto const underWay = Evidence::windowDir( *kept.box().database )->window( "fabric#1" );
   uint32_t number = 0;
   Evidence::StageRun run{};
   run.op = Maintenance::Unit::MaintenanceOp::enter;
   for( auto _ : state )
      kept.loop().turn( [&] {
         underWay->stageRunIs( number++ % 8, run );
         run.began += 1;
      } );
}
BENCHMARK( endOfAStage )->Unit( benchmark::kMillisecond )->UseRealTime();

}  // namespace
