// What one message of the ring trace costs, with an interface's name and two rates and its time stamp. Beside it stand
// the same with a name that is not kept in the ring's layout, a plain copy of as many bytes into a ring, the least that
// it can cost, and spdlog writing the same text to a file. Then what a disabled level costs.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <vector>

#ifdef RATEMON_HAS_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include "brisklog/Brisklog.h"
#include "kel/Trace.h"
#include "records/IntfId.h"

namespace {

constexpr std::size_t ringBytes = 4 << 20;

std::string scratchFile( char const * name ) {
   return ( std::filesystem::temp_directory_path() / ( std::string( "ratemon-bench-" ) + name ) ).string();
}

struct Sample {
   Lumo::IntfId intf{ "Ethernet12/3" };
   double in = 4e6, out = 2.5e5;  // bit/s
};

// Of names of 5 to 14 characters, in no order that a processor could foresee.
std::vector<Sample> mixedSamples() {
   std::mt19937 random( 1 );
   std::vector<Sample> samples;
   for( int i = 0; i < 1024; ++i ) {
      static constexpr std::array<char const *, 5> forms{ "Vlan", "Ethernet", "Ethernet1/", "Ethernet12/",
                                                          "Port-Channel" };
      samples.push_back( { Lumo::IntfId( forms[random() % forms.size()] + std::to_string( random() % 100 ) ) } );
   }
   return samples;
}

template<class NameOf>
void writeMessages( benchmark::State & state, NameOf const & nameOf ) {
   std::string const file = scratchFile( "ring" );
   Brisklog::ringIs( Brisklog::RingFile::create( file, ringBytes ) );
   auto samples = mixedSamples();
   std::size_t at = 0;
   for( auto _ : state ) {
      Sample & sample = samples[at++ % samples.size()];
      benchmark::DoNotOptimize( sample );
      BRISKLOG( 8, "intf {}, rates in {} out {}", nameOf( sample ), sample.in, sample.out );
   }
   std::filesystem::remove( file );
   std::filesystem::remove( file + ".1" );
}

void ringMessage( benchmark::State & state ) {
   writeMessages( state, []( Sample const & sample ) { return sample.intf; } );
}
void ringMessageOfView( benchmark::State & state ) {
   writeMessages( state, []( Sample const & sample ) { return sample.intf.name(); } );
}

// Header, a name of 12 characters with its length, two doubles.
void plainCopy( benchmark::State & state ) {
   constexpr std::size_t bytes = 24 + 16 + 16;
   std::vector<std::byte> ring( ringBytes );
   std::array<std::byte, bytes> message{};
   std::size_t head = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( message );
      if( head + bytes > ringBytes ) head = 0;
      std::memcpy( ring.data() + head, message.data(), bytes );
      head += bytes;
      benchmark::ClobberMemory();
   }
}

#ifdef RATEMON_HAS_SPDLOG
void spdlogToFile( benchmark::State & state ) {
   std::string const file = scratchFile( "spdlog" );
   auto const logger =
      std::make_shared<spdlog::logger>( "bench", std::make_shared<spdlog::sinks::basic_file_sink_st>( file, true ) );
   Sample sample;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( sample );
      logger->info( "intf {}, rates in {} out {}", sample.intf.name(), sample.in, sample.out );
   }
   std::filesystem::remove( file );
}
BENCHMARK( spdlogToFile );
#endif

void disabledRingLevel( benchmark::State & state ) {
   Brisklog::levelsIs( { 0, 1 } );
   Sample sample;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( sample );
      BRISKLOG( 8, "intf {}, rates in {} out {}", sample.intf, sample.in, sample.out );
   }
   Brisklog::levelsIs( { 0, 1, 3, 4, 8 } );
}

void disabledTraceLevel( benchmark::State & state ) {
   Kel::TraceHandle & handle = Kel::traceHandle( "bench" );
   Sample sample;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( sample );
      KEL_TRACE( handle, 9, "intf " << sample.intf << ", rates in " << sample.in << " out " << sample.out );
   }
}

BENCHMARK( ringMessage );
BENCHMARK( ringMessageOfView );
BENCHMARK( plainCopy );
BENCHMARK( disabledRingLevel );
BENCHMARK( disabledTraceLevel );

}  // namespace
