// The fuzzer's inputs, one by one, as ordinary tests: those named bad-* end at a line that is wrong, the others run to
// their end.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ScenarioInput.h"

namespace Test {

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> inputs() {
   std::vector<fs::path> found;
   for( auto const & entry : fs::directory_iterator( fs::path( RATEMON_SOURCE_DIR ) / "tests/fuzz/corpus/scenario" ) ) {
      found.push_back( entry.path() );
   }
   std::sort( found.begin(), found.end() );
   return found;
}

}  // namespace

class Corpus : public ::testing::TestWithParam<fs::path> {};

TEST_P( Corpus, runsAsItsNameSays ) {
   std::ifstream in( GetParam(), std::ios::binary );
   ScenarioRun const run = runScenario( std::string{ std::istreambuf_iterator<char>( in ), {} } );
   EXPECT_THAT( run.faults, ::testing::IsEmpty() );
   bool const bad = GetParam().stem().string().starts_with( "bad-" );
   EXPECT_EQ( !run.error.empty(), bad ) << run.error;
}

INSTANTIATE_TEST_SUITE_P( Scenario, Corpus, ::testing::ValuesIn( inputs() ), []( auto const & tested ) {
   std::string name = tested.param.stem();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
} );

}  // namespace Test
