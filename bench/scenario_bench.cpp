// What one virtual hour of a box costs in the simulator: ten units of twenty Ethernet interfaces each enter maintenance
// a minute apart, each one's traffic goes five minutes later, and until the hour is over they are watched in
// maintenance. The scenario runs as maintsim has it, from its lines, in a world that is new for every run.
#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "scenario/Scenario.h"
#include "world/World.h"

namespace {

constexpr int unitCount = 10;
constexpr int intfsPerUnit = 20;
constexpr int minutesUntilQuiet = 5;
constexpr int minutes = 60;

std::string scenarioUnit( int unit ) { return "unit" + std::to_string( unit ); }

// Ethernet1/1 to Ethernet1/20 are the first unit's.
std::string intfName( int unit, int port ) {
   return "Ethernet" + std::to_string( unit ) + "/" + std::to_string( port );
}

void writeUnit( std::ostream & to, int unit ) {
   std::string const group = "intf:" + scenarioUnit( unit );
   for( int port = 1; port <= intfsPerUnit; ++port ) {
      std::string const intf = intfName( unit, port );
      to << R"({"set": ["interface/status/all","intfStatus",")" << intf << R"("], "to": {"operStatus": 1}})" << '\n'
         << R"({"set": ["maintenance/mapping/member/interface","intfToGroup",")" << intf << R"("], "to": {"group": {")"
         << group << R"(": true}, "profileChangeCause": 2, "selectedProfile": {"2": "watch"}}})" << '\n'
         << R"({"set": ["group/status/interface","status",")" << scenarioUnit( unit ) << R"("], "to": {"intf": {")"
         << intf << R"(": true}}})" << '\n';
   }
   to << R"({"set": ["maintenance/mapping/group","groupToUnit",")" << group << R"("], "to": {"scenarioUnit": {")"
      << scenarioUnit( unit ) << R"(": true}}})" << '\n'
      << R"({"set": ["maintenance/unit/status","status",")" << scenarioUnit( unit )
      << R"("], "to": {"state": 1, "group": {")" << group << R"(": true}}})" << '\n';
}

void writeTraffic( std::ostream & to, int unit, long bitsPerSecond ) {
   to << R"({"traffic": {)";
   for( int port = 1; port <= intfsPerUnit; ++port ) {
      to << ( port > 1 ? ", " : "" ) << '"' << intfName( unit, port ) << R"(": {"in": )" << bitsPerSecond
         << R"(, "out": )" << bitsPerSecond << '}';
   }
   to << "}}\n";
}

void writeEnter( std::ostream & to, int unit ) {
   std::string const instance = scenarioUnit( unit ) + "#1";
   to << R"({"set": ["maintenance/unit/status","status",")" << scenarioUnit( unit )
      << R"("], "to": {"genId": 1, "maintEnterInstanceName": ")" << instance << R"(", "state": 2}})" << '\n'
      << R"({"set": ["stage/maintEnter/completionstatus","status",")" << instance << R"("], "to": {}})" << '\n'
      << R"({"set": ["stage/maintEnter/progress","progress",")" << instance
      << R"("], "to": {"stage": {"ratemon": true}}})" << '\n';
}

std::string hour() {
   std::ostringstream lines;
   lines << R"({"set": ["maintenance/profile/config/interface","config","watch"], )"
         << R"("to": {"rateMonThresholdInKbps": 100, "sampleInterval": 10, "rateMonLoadInterval": 60}})" << '\n';
   for( int unit = 1; unit <= unitCount; ++unit ) {
      writeUnit( lines, unit );
      writeTraffic( lines, unit, 10'000'000 );
   }
   lines << R"({"start": {}})" << '\n';
   for( int minute = 1; minute <= minutes; ++minute ) {
      if( minute <= unitCount ) writeEnter( lines, minute );
      int const quiet = minute - minutesUntilQuiet;
      if( quiet >= 1 && quiet <= unitCount ) writeTraffic( lines, quiet, 0 );
      lines << R"({"advance": 60})" << '\n';
   }
   return std::move( lines ).str();
}

bool allDrained( Maintenance::MaintenanceState const & state ) {
   for( int unit = 1; unit <= unitCount; ++unit ) {
      Kel::Name const instance( scenarioUnit( unit ) + "#1" );
      if( !state.enter.agentStatus->complete( { Kel::String8( "ratemon" ), instance } ) ) return false;
   }
   return true;
}

int64_t samplesIn( Maintenance::MaintenanceState const & state ) {
   int64_t sum = 0;
   for( int unit = 1; unit <= unitCount; ++unit ) {
      for( int port = 1; port <= intfsPerUnit; ++port ) {
         auto const record = state.monIntfStatus->monIntfStatus( Lumo::IntfId( intfName( unit, port ) ) );
         if( record ) sum += record->totalSamples();
      }
   }
   return sum;
}

void virtualHour( benchmark::State & state ) {
   std::string const text = hour();
   int64_t samples = 0;
   for( auto _ : state ) {
      Sim::World world( RATEMON_PLUGIN_PATH, 1000 );
      std::ostringstream answers;
      Sim::Scenario scenario( world, answers );
      std::istringstream lines( text );
      scenario.run( lines );
      samples = samplesIn( world.state() );
      if( !allDrained( world.state() ) ) {
         state.SkipWithError( "not every unit reported that its traffic has gone" );
         break;
      }
   }
   state.counters["samples"] = static_cast<double>( samples );
}

BENCHMARK( virtualHour )->Unit( benchmark::kMillisecond );

}  // namespace
