// The plug-in is gone from one moment to the next, at every point of every sample scenario, and starts again over the
// records.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Model.h"
#include "scenario/Scenario.h"

namespace Test {

namespace {

std::vector<std::filesystem::path> scenarios() {
   std::vector<std::filesystem::path> files;
   for( auto const & entry : std::filesystem::directory_iterator( RATEMON_SOURCE_DIR "/examples/scenarios" ) ) {
      if( entry.path().extension() == ".jsonl" ) files.push_back( entry.path() );
   }
   std::sort( files.begin(), files.end() );
   return files;
}

std::vector<std::string> lines( std::filesystem::path const & file ) {
   std::vector<std::string> all;
   std::ifstream in( file );
   for( std::string line; std::getline( in, line ); ) all.push_back( line );
   return all;
}

std::string nameOf( ::testing::TestParamInfo<std::filesystem::path> const & info ) {
   std::string name = info.param.stem();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
}

}  // namespace

class CrashAfterEveryLine : public ::testing::TestWithParam<std::filesystem::path> {};

TEST_P( CrashAfterEveryLine, endsAsTheRecordsSay ) {
   auto const all = lines( GetParam() );
   int crashes = 0;
   for( std::size_t crashed = 0; crashed < all.size() && !HasFailure(); ++crashed ) {
      SCOPED_TRACE( GetParam().filename().string() + ", crash after line " + std::to_string( crashed + 1 ) );
      std::ostringstream out;
      Sim::World world( RATEMON_PLUGIN_PATH, 1000 );
      Sim::Scenario scenario( world, out );
      for( std::size_t i = 0; i < all.size(); ++i ) {
         scenario.line( all[i] );
         // What goes before the crash is as it was in the lives that crashed sooner, or did not yet.
         if( i >= crashed && world.running() ) expectInvariants( world );
         if( i != crashed || !world.running() ) continue;
         ++crashes;
         scenario.line( R"({"crash": {}})" );
         scenario.line( R"({"start": {}})" );
         EXPECT_EQ( monitoredNow( world ), monitoredAfterRestart( world ) );
         expectInvariants( world );
      }
   }
   EXPECT_GT( crashes, 5 );
}

INSTANTIATE_TEST_SUITE_P( Scenarios, CrashAfterEveryLine, ::testing::ValuesIn( scenarios() ), nameOf );

}  // namespace Test
