// What one sample of one Ethernet interface costs, end to end: its timer fires on the wheel, its counters are read
// from the shared table, rates are computed, the records are written, the drain decision is made and put into the
// ring trace, and the timer is set for the next interval. The program plays the agent: it keeps the records and loads
// the plug-in from its shared object. The interfaces of one unit enter maintenance and never drain; an iteration is
// one sample interval of the virtual clock, in which each of them is sampled once.
//
// `sample` leaves the counters as they stand, so that nothing but the samples is measured. In `sampleWithFeed`
// traffic flows: the table's rows are written once per turn before the first of them is read, as the agent does it.
// `sampleJudged` is that, and the service's ledger judges the account of each interface after every turn; less
// `sampleWithFeed` it is what a judgement costs. None includes reading the kernel's statistics, nor a watcher of the
// records: each write asks whether anyone is to be told, and nobody is. Framework trace lines are disabled and all ring
// trace levels enabled, which is the default.
//
// An agent is set up once for all repetitions of a case. `setup_s` is the time which that takes, `bytes/monitored` by
// how much the resident set grows per interface from the entry on, `bytes/interface` by how much it grows for the whole
// agent. Interned names stay from one case to the next, so look at memory in a run of one case.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Cold.h"
#include "events/EventLog.h"
#include "evidence/Ledger.h"
#include "kel/ActivityLoop.h"
#include "plugin/Loader.h"
#include "plugin/PluginContext.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "records/Names.h"
#include "state/MaintenanceState.h"

namespace {

using Lumo::IntfId;
using Maintenance::Profile::ProfileType;

constexpr double sampleIntervalSeconds = 10;

Kel::String8 const profileName( "never-drained" );
Kel::String8 const unitName( "fabric" );
Kel::Name const instanceName( "fabric#1" );

Group::GroupKey unitGroup() { return { Group::GroupType::intf, unitName }; }

// Modules of 32 ports: Ethernet1/1 to Ethernet1/32, Ethernet2/1, ...
std::vector<IntfId> ethernets( int64_t count ) {
   std::vector<IntfId> intfs;
   for( int64_t i = 0; i < count; ++i ) {
      intfs.emplace_back( "Ethernet" + std::to_string( i / 32 + 1 ) + "/" + std::to_string( i % 32 + 1 ) );
   }
   return intfs;
}

// The pages that are resident, without those that freed memory still holds.
double residentBytes() {
   malloc_trim( 0 );
   int64_t total = 0, resident = 0;  // pages
   std::ifstream( "/proc/self/statm" ) >> total >> resident;
   return static_cast<double>( resident * sysconf( _SC_PAGESIZE ) );
}

class Agent {
 public:
   explicit Agent( int64_t intfCount ) : intfs_( ethernets( intfCount ) ) {
      Maintenance::DefaultPluginLoader().load( RATEMON_PLUGIN_PATH );
      makeProfile();
      makeUnit();
      Maintenance::DefaultPluginLoader().initPlugins( context_ );
      loop_.runUntil( *clock_, clock_->now() );
      residentBeforeEntry_ = residentBytes();
      enter();
      intervalPasses();  // so that every interface has rates
   }
   Agent( Agent const & ) = delete;
   Agent & operator=( Agent const & ) = delete;
   ~Agent() { pluginDir_->entityDel( "rateMonPlugin" ); }

   [[nodiscard]] double residentBeforeEntry() const { return residentBeforeEntry_; }  // bytes

   // From now on the service's ledger has an account of every interface.
   void ledgerIs() {
      loop_.turn( [this] {
         ledger_ = std::make_unique<Evidence::Ledger>(
            *database_, state_, quill_, []( IntfId ) { return ""; }, events_ );
         Kel::Ptr<Evidence::Window> const window( new Evidence::Window( instanceName ) );
         for( IntfId const intf : intfs_ ) window->intfIs( intf );
         ledger_->windows()->windowIs( window );
         ledger_->unitIs( unitName, intfs_, window );
      } );
      // Two samples whose counters were read make the first reading.
      intervalPasses();
      intervalPasses();
   }
   // Judged by its latest sample: nothing is left for a later turn.
   [[nodiscard]] bool allJudged() const {
      auto const unit = ledger_->accounts()->unit( unitName );
      return std::all_of( intfs_.begin(), intfs_.end(), [&]( IntfId intf ) {
         auto const account = unit->account( intf );
         return account->verdict() == Evidence::Verdict::loud &&
                account->lastLoud().time == monitored( intf )->lastSampleTime();
      } );
   }
   // From now on every turn that samples finds the rows grown.
   void feedIs() {
      quill_->refresherIs( [this]( auto ) {
         octets_ += 12'500;
         for( IntfId const intf : intfs_ ) writer_.readIs( intf, { octets_, octets_ } );
      } );
   }
   // Not inlined, so that a profiler can be told to count in here only.
   [[gnu::noinline]] void intervalPasses() { loop_.runUntil( *clock_, clock_->now() + sampleIntervalSeconds ); }

   [[nodiscard]] int64_t samples() const {
      int64_t sum = 0;
      for( IntfId const intf : intfs_ ) {
         auto const record = monitored( intf );
         if( record ) sum += record->totalSamples();
      }
      return sum;
   }
   [[nodiscard]] bool allStillMonitored() const {
      return std::all_of( intfs_.begin(), intfs_.end(), [this]( IntfId intf ) {
         return monitored( intf )->state() == Maintenance::MonIntfState::thresholdMonitoring;
      } );
   }

 private:
   // No rate is below a threshold of 0.
   void makeProfile() {
      Kel::Ptr<IntfMaintenanceProfile::Config> const config( new IntfMaintenanceProfile::Config( profileName ) );
      config->rateMonThresholdInKbpsIs( 0 );
      config->sampleIntervalIs( sampleIntervalSeconds );
      config->rateMonLoadIntervalIs( 60 );
      state_.profiles->configIs( config );
   }

   void makeUnit() {
      auto const group = state_.groupStatus->statusIs( unitName );
      for( IntfId const intf : intfs_ ) {
         group->intfIs( intf, true );
         auto const member = state_.intfToGroup->intfToGroupIs( intf );
         member->groupIs( unitGroup(), true );
         member->selectedProfileIs( ProfileType::interface, { profileName } );
         state_.intfStatus->intfStatusIs( intf )->operStatusIs( Interface::IntfOperStatus::up );
         writer_.rowIs( intf );
         writer_.readIs( intf, { uint64_t{ 0 }, uint64_t{ 0 } } );
      }
      state_.groupToUnit->groupToUnitIs( unitGroup() )->unitNameIs( Kel::Name( unitName.str() ), true );
      auto const unit = state_.unitStatus->statusIs( unitName );
      unit->groupIs( unitGroup(), true );
      unit->genIdIs( 1 );
      unit->maintEnterInstanceNameIs( instanceName );
      unit->stateIs( Maintenance::Unit::State::active );
   }

   void enter() {
      state_.unitStatus->status( unitName )->stateIs( Maintenance::Unit::State::entering );
      state_.enter.completion->statusIs( instanceName );
      state_.enter.progress->progressIs( instanceName )->stageIs( Kel::String8( Maintenance::rateMonStage ), true );
      loop_.runUntil( *clock_, clock_->now() );
   }

   [[nodiscard]] Kel::Ptr<Maintenance::MonIntfStatus const> monitored( IntfId intf ) const {
      return state_.monIntfStatus->monIntfStatus( intf );
   }

   std::vector<IntfId> const intfs_;
   Kel::Ptr<Kel::VirtualClock> const clock_ = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop_{ clock_ };
   Kel::Ptr<Dovra::EntityManager> const database_ = new Dovra::EntityManager;
   Maintenance::MaintenanceState state_{ *database_ };
   Kel::Ptr<Kel::Dir> const pluginDir_ = new Kel::Dir( "plugins" );
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Kel::Ptr<KelQuill::EntityManager> const quill_ = new KelQuill::EntityManager( writer_.table() );
   Maintenance::PluginContext context_{ pluginDir_, database_, quill_ };
   Service::EventLog events_;  // outlives the ledger
   std::unique_ptr<Evidence::Ledger> ledger_;
   uint64_t octets_ = 0;
   double residentBeforeEntry_ = 0;  // bytes
};

enum class With { nothing, feed, ledger };
enum class Caches { asTheyAre, emptied };

// An agent with what it took to set it up.
struct Measured {
   std::unique_ptr<Agent> agent;
   int64_t intfCount = 0;
   With with = With::nothing;
   double setUpSeconds = 0;
   double bytesPerInterface = 0, bytesPerMonitored = 0;
};

Measured current;  // one at a time, since the loop is the process's

void currentIs( int64_t intfCount, With with ) {
   if( current.agent && current.intfCount == intfCount && current.with == with ) return;
   current = {};
   double const residentAtStart = residentBytes();
   auto const begin = std::chrono::steady_clock::now();
   auto agent = std::make_unique<Agent>( intfCount );
   std::chrono::duration<double> const took = std::chrono::steady_clock::now() - begin;
   double const resident = residentBytes();
   auto const count = static_cast<double>( intfCount );
   double const perMonitored = ( resident - agent->residentBeforeEntry() ) / count;
   if( with != With::nothing ) agent->feedIs();
   if( with == With::ledger ) agent->ledgerIs();
   current = { std::move( agent ), intfCount, with, took.count(), ( resident - residentAtStart ) / count,
               perMonitored };
}

benchmark::Counter timePerSample( int64_t samples ) {
   return { static_cast<double>( samples ), benchmark::Counter::kIsRate | benchmark::Counter::kInvert };
}

// What this thread has used of its processor. A machine that does something else as well does not count.
double processorSeconds() {
   timespec time{};
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &time );
   return static_cast<double>( time.tv_sec ) + static_cast<double>( time.tv_nsec ) * 1e-9;
}

// One interval of the box in each iteration. In caches that were emptied before it, it is timed by hand: to halt and
// resume the benchmark's own clock would cost as much as some samples.
template<class Box>
void passIntervals( benchmark::State & state, Box & box, Caches caches ) {
   if( caches == Caches::asTheyAre ) {
      for( auto _ : state ) box.intervalPasses();
      return;
   }
   Bench::Cold cold;
   for( auto _ : state ) {
      cold.empty();
      double const begin = processorSeconds();
      box.intervalPasses();
      state.SetIterationTime( processorSeconds() - begin );
   }
}

void measure( benchmark::State & state, With with, Caches caches ) {
   currentIs( state.range( 0 ), with );
   Agent & agent = *current.agent;
   int64_t const before = agent.samples();
   passIntervals( state, agent, caches );
   int64_t const samples = agent.samples() - before;
   if( samples != static_cast<int64_t>( state.iterations() ) * state.range( 0 ) || !agent.allStillMonitored() ) {
      state.SkipWithError( "not every interface was sampled in every interval" );
      return;
   }
   if( with == With::ledger && !agent.allJudged() ) return state.SkipWithError( "not every account was judged" );
   state.SetItemsProcessed( samples );
   state.counters["time/sample"] = timePerSample( samples );
   state.counters["setup_s"] = current.setUpSeconds;
   state.counters["bytes/interface"] = current.bytesPerInterface;
   state.counters["bytes/monitored"] = current.bytesPerMonitored;
}

void sample( benchmark::State & state ) { measure( state, With::nothing, Caches::asTheyAre ); }
void sampleWithFeed( benchmark::State & state ) { measure( state, With::feed, Caches::asTheyAre ); }
void sampleJudged( benchmark::State & state ) { measure( state, With::ledger, Caches::asTheyAre ); }
void coldSample( benchmark::State & state ) { measure( state, With::nothing, Caches::emptied ); }
void coldSampleWithFeed( benchmark::State & state ) { measure( state, With::feed, Caches::emptied ); }
void coldSampleJudged( benchmark::State & state ) { measure( state, With::ledger, Caches::emptied ); }

// The same work by hand, the least that it can cost: a hashed wheel of rings, one plain struct for each interface, one
// sum of unsigned numbers, and a ring of binary messages.
class ByHand {
 public:
   explicit ByHand( int64_t count ) : intfs_( static_cast<std::size_t>( count ) ), slots_( 64 ), ring_( ringSize ) {
      for( Intf & intf : intfs_ ) arm( intf );
   }
   [[gnu::noinline]] void intervalPasses() {
      benchmark::DoNotOptimize( *this );  // nothing of it may be taken for known
      for( uint64_t n = 0; n < interval; ++n ) tickPasses();
      benchmark::ClobberMemory();
   }
   [[nodiscard]] int64_t samples() const { return samples_; }

 private:
   static constexpr uint64_t interval = 10;  // ticks of a second
   static constexpr std::size_t ringSize = 1 << 16;

   struct Link {
      Link * prev = this;
      Link * next = this;
   };
   struct Rates {
      double in = 0, out = 0, time = 0;
   };
   struct Intf : Link {
      uint64_t inOctets = 0, outOctets = 0;  // as the counters stand
      uint64_t prevIn = 0, prevOut = 0;
      double sampledAt = 0;
      Rates cur, before;
      uint64_t sumIn = 0, sumOut = 0;  // what the unit's sum has of it
      uint32_t totalSamples = 0, quietSamples = 0, above = 0, below = 0;
   };
   struct Message {
      double time;
      Intf const * intf;
      bool drained;
      double in, out;
   };

   void arm( Intf & intf ) {
      Link & slot = slots_[( tick_ + interval ) % slots_.size()];
      intf.prev = slot.prev;
      intf.next = &slot;
      slot.prev->next = &intf;
      slot.prev = &intf;
   }
   void tickPasses() {
      ++tick_;
      Link & slot = slots_[tick_ % slots_.size()];
      while( slot.next != &slot ) {
         auto & intf = static_cast<Intf &>( *slot.next );
         intf.prev->next = intf.next;
         intf.next->prev = intf.prev;
         sample( intf, static_cast<double>( tick_ ) );
         arm( intf );
      }
   }
   void sample( Intf & intf, double now ) {
      double const seconds = now - intf.sampledAt;
      intf.before = intf.cur;
      intf.cur = { static_cast<double>( ( intf.inOctets - intf.prevIn ) * 8 ) / seconds,
                   static_cast<double>( ( intf.outOctets - intf.prevOut ) * 8 ) / seconds, now };
      intf.prevIn = intf.inOctets;
      intf.prevOut = intf.outOctets;
      intf.sampledAt = now;
      auto const in = static_cast<uint64_t>( intf.cur.in + 0.5 );
      auto const out = static_cast<uint64_t>( intf.cur.out + 0.5 );
      unitIn_ += in - std::exchange( intf.sumIn, in );
      unitOut_ += out - std::exchange( intf.sumOut, out );
      ++intf.totalSamples;
      bool const quiet = intf.cur.in < threshold_ && intf.cur.out < threshold_;
      intf.quietSamples = quiet ? intf.quietSamples + 1 : 0;
      ++( quiet ? intf.below : intf.above );
      bool const drained = quiet && intf.quietSamples * interval >= 60;
      ring_[head_++ % ringSize] = { now, &intf, drained, intf.cur.in, intf.cur.out };
      ++samples_;
   }

   double threshold_ = 0;
   std::vector<Intf> intfs_;
   std::vector<Link> slots_;
   std::vector<Message> ring_;
   std::size_t head_ = 0;
   uint64_t tick_ = 0;
   uint64_t unitIn_ = 0, unitOut_ = 0;
   int64_t samples_ = 0;
};

void measureByHand( benchmark::State & state, Caches caches ) {
   ByHand box( state.range( 0 ) );
   box.intervalPasses();
   int64_t const before = box.samples();
   passIntervals( state, box, caches );
   int64_t const samples = box.samples() - before;
   state.SetItemsProcessed( samples );
   state.counters["time/sample"] = timePerSample( samples );
}

void byHand( benchmark::State & state ) { measureByHand( state, Caches::asTheyAre ); }
void coldByHand( benchmark::State & state ) { measureByHand( state, Caches::emptied ); }

void sizes( benchmark::internal::Benchmark * bench ) {
   bench->Arg( 1000 )->Arg( 10'000 )->Arg( 100'000 )->Arg( 1'000'000 )->Unit( benchmark::kMicrosecond );
}

BENCHMARK( byHand )->Apply( sizes );
BENCHMARK( sample )->Apply( sizes );
BENCHMARK( sampleWithFeed )->Arg( 100 )->Arg( 1000 )->Arg( 10'000 )->Arg( 100'000 )->Unit( benchmark::kMicrosecond );
BENCHMARK( sampleJudged )->Arg( 100 )->Arg( 1000 )->Arg( 10'000 )->Unit( benchmark::kMicrosecond );

void coldSizes( benchmark::internal::Benchmark * bench ) {
   bench->Arg( 100 )->Arg( 1000 )->Arg( 4000 )->UseManualTime()->MinTime( 0.1 )->Unit( benchmark::kMicrosecond );
}

BENCHMARK( coldByHand )->Apply( coldSizes );
BENCHMARK( coldSample )->Apply( coldSizes );
BENCHMARK( coldSampleWithFeed )->Apply( coldSizes );
BENCHMARK( coldSampleJudged )->Apply( coldSizes );

}  // namespace

int main( int argc, char ** argv ) {
   benchmark::Initialize( &argc, argv );
   if( benchmark::ReportUnrecognizedArguments( argc, argv ) ) return 1;
   benchmark::RunSpecifiedBenchmarks();
   current = {};  // before the globals that it rests on
   benchmark::Shutdown();
}
