// What a scrape of /metrics costs a box with N interfaces in one unit, all of them on their way and monitored with
// rates: the whole of it, and the longest that it holds the loop at a time, which is by how much a sample may be late
// for it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "metrics/Metrics.h"
#include "quill/CounterWriter.h"

namespace {

using Clock = std::chrono::steady_clock;

class UnhookedStages final : public Service::Hooks {
   void run( Service::HookRequest const &, Done done ) override { done( "none" ); }
   void giveUp( std::string const & ) override {}
};

std::string linkName( int64_t i ) { return "Ethernet" + std::to_string( i ); }

std::string scrapedConfig( int64_t interfaces ) {
   std::string text =
      "profiles: { p: { threshold: 100kbps } }\ndefault-profile: p\nunits: { fabric: { groups: [all] } }\n"
      "groups:\n  all:\n    interfaces:\n";
   for( int64_t i = 0; i < interfaces; ++i ) text += "    - " + linkName( i ) + "\n";
   return text;
}

struct ScrapedBox {
   explicit ScrapedBox( int64_t interfaces ) {
      loop.turn( [&] {
         if( !service.reload( Service::Config::parse( scrapedConfig( interfaces ), "bench" ) ).empty() ) std::abort();
         Service::LinkReport report;
         report.up = true;
         for( int64_t i = 0; i < interfaces; ++i ) {
            auto const intf = Lumo::IntfId::declare( linkName( i ), Lumo::IntfKind::ethernet );
            links.linkIs( intf, report );
            auto const monitor = state.monIntfStatus->monIntfStatusIs( intf, "p", 1000 );
            monitor->stateIs( Maintenance::MonIntfState::thresholdMonitoring );
            monitor->totalSamplesInc( 7 );
         }
         if( service.units().enter( "fabric", {}, "bench" ).outcome != Service::UnitService::Outcome::started )
            std::abort();
      } );
   }

   Kel::Ptr<Kel::VirtualClock> clock{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop{ Kel::Ptr<Kel::Clock>( clock ) };
   Kel::Ptr<Dovra::EntityManager> database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
   KelQuill::CounterWriter writer{ state.counterWriterStatus, "" };
   Kel::Ptr<KelQuill::EntityManager> counters{ new KelQuill::EntityManager( writer.table() ) };
   Service::LinkRecords links{ state };
   UnhookedStages hooks;
   Service::MaintenanceService service{ { database, state, counters, links, hooks, {}, {} },
                                        Service::Config::Config() };
   Host::LiveCounters counted;
   Host::Metrics metrics{ { service, state, Service::heldLinkDir( *database ), counted, {} } };
};

void scrape( benchmark::State & state ) {
   ScrapedBox box( state.range( 0 ) );
   constexpr std::size_t piece = 16 * 1024;  // about as much as a connection takes at a time
   std::chrono::duration<double> longest{};
   std::size_t bytes = 0;
   for( [[maybe_unused]] auto _ : state ) {
      bytes = 0;
      Host::HttpAnswer answer;
      auto const timed = [&]( auto const & work ) {
         auto const begin = Clock::now();
         box.loop.turn( work );
         longest = std::max( longest, std::chrono::duration<double>( Clock::now() - begin ) );
      };
      timed( [&] { answer = box.metrics.answer(); } );
      while( !answer.stream->ended() ) timed( [&] { bytes += answer.stream->next( piece ).size(); } );
   }
   state.counters["bytes"] = static_cast<double>( bytes );
   state.counters["longest_ms"] = longest.count() * 1e3;
}
BENCHMARK( scrape )->Arg( 10 )->Arg( 1'000 )->Arg( 10'000 )->Unit( benchmark::kMillisecond );

}  // namespace
