// The scenarios of examples/: each prints, run by the real maintsim, exactly what stands in the .expected file beside
// it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ScenarioFixture.h"

namespace Test {

namespace fs = std::filesystem;

namespace {

fs::path const folder = fs::path( RATEMON_SOURCE_DIR ) / "examples/scenarios";

std::vector<fs::path> scenarios() {
   std::vector<fs::path> found;
   for( auto const & entry : fs::directory_iterator( folder ) ) {
      if( entry.path().extension() == ".jsonl" ) found.push_back( entry.path() );
   }
   std::sort( found.begin(), found.end() );
   return found;
}

}  // namespace

class Example : public ::testing::TestWithParam<fs::path> {};

TEST_P( Example, tellsItsStoryAndTheSameEveryTime ) {
   std::ifstream in( fs::path( GetParam() ).replace_extension( ".expected" ) );
   ASSERT_TRUE( in ) << GetParam() << " has no .expected file";
   std::string const expected{ std::istreambuf_iterator<char>( in ), {} };
   for( int i = 0; i < 2; ++i ) EXPECT_EQ( maintsim( "'" + GetParam().string() + "'" ), expected + "0\n" );
}

INSTANTIATE_TEST_SUITE_P( Scenarios, Example, ::testing::ValuesIn( scenarios() ), []( auto const & tested ) {
   std::string name = tested.param.stem();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
} );

}  // namespace Test
