// The configuration: whatever the file says, it gives a Config that holds, or problems that can be shown.
//
//    build/fuzz/fuzz/config_fuzz -max_len=2048 -dict=tests/fuzz/config.dict WORK_DIR tests/fuzz/corpus/config
#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>

#include "Targets.h"
#include "config/Config.h"
#include "kel/Assert.h"

namespace {

using namespace Service::Config;

template<class T>
bool has( std::vector<T> const & all, std::string const & name ) {
   return std::ranges::count( all, name, &T::name ) == 1;
}

void checkStages( std::vector<Stage> const & stages, bool in ) {
   auto const at = [&]( std::string_view name ) { return std::ranges::find( stages, name, &Stage::name ); };
   KEL_ASSERT( at( rateMonStage ) != stages.end() );
   KEL_ASSERT( in == ( at( verifyStage ) != stages.end() ) && at( verifyStage ) >= at( rateMonStage ) );
   for( Stage const & stage : stages ) {
      bool const builtIn = stage.name == rateMonStage || stage.name == verifyStage;
      KEL_ASSERT( has( stages, stage.name ) && stage.run.empty() == builtIn );
      KEL_ASSERT( !stage.timeoutSeconds || *stage.timeoutSeconds > 0 );
      KEL_ASSERT( in || stage.onTimeout != OnTimeout::rollback );
   }
}

void check( Config const & config ) {
   KEL_ASSERT( has( config.profiles, config.defaultProfile ) );
   for( Profile const & profile : config.profiles ) {
      KEL_ASSERT( profile.thresholdKbps > 0 && std::isfinite( profile.thresholdKbps ) );
      KEL_ASSERT( profile.sampleIntervalSeconds >= 1 && std::isfinite( profile.sampleIntervalSeconds ) );
      KEL_ASSERT( profile.shutdown || !profile.maxDelaySeconds );
   }
   for( Group const & group : config.groups ) {
      KEL_ASSERT( has( config.groups, group.name ) && ( !group.profile || has( config.profiles, *group.profile ) ) );
   }
   for( Unit const & unit : config.units ) {
      KEL_ASSERT( has( config.units, unit.name ) && !unit.groups.empty() );
      for( std::string const & group : unit.groups ) KEL_ASSERT( has( config.groups, group ) );
   }
   checkStages( config.stages.maintEnter, true );
   checkStages( config.stages.maintExit, false );
}

// In the order of the file, each where there is something or just behind it, and a line in what is shown.
void check( ConfigError const & error, std::string_view text ) {
   KEL_ASSERT( !error.problems().empty() );
   auto const lines = 1 + std::ranges::count_if( text, []( char c ) { return c == '\n' || c == '\r'; } );
   int line = 1;
   for( Problem const & problem : error.problems() ) {
      KEL_ASSERT( problem.line >= line && problem.line <= lines + 1 && problem.column >= 1 );
      KEL_ASSERT( !problem.text.empty() );
      line = problem.line;
   }
   std::string_view const shown = error.what();
   KEL_ASSERT( static_cast<std::size_t>( std::ranges::count( shown, '\n' ) ) + 1 == error.problems().size() );
}

}  // namespace

bool Fuzz::config( Bytes input ) {
   std::string_view const text( reinterpret_cast<char const *>( input.data() ), input.size() );
   try {
      check( parse( text, "file" ) );
      return true;
   } catch( ConfigError const & error ) {
      check( error, text );
      return false;
   }
}

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   static_cast<void>( Fuzz::config( { bytes, size } ) );
   return 0;
}
