// maintsim's lines under libFuzzer: no input may end the process, whatever it makes of it.
//
//    build/fuzz/fuzz/scenario_fuzz -max_len=2048 -dict=tests/fuzz/scenario.dict WORK_DIR tests/fuzz/corpus/scenario
#include <cstdio>
#include <cstdlib>

#include "ScenarioInput.h"

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   auto const run = Test::runScenario( { reinterpret_cast<char const *>( bytes ), size } );
   if( run.faults.empty() ) return 0;
   for( std::string const & fault : run.faults ) std::fprintf( stderr, "%s\n", fault.c_str() );
   std::abort();
}
