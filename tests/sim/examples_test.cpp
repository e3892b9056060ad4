// The scenarios of examples/: each prints, run by the real maintsim, exactly what stands in the .expected file beside
// it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

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

fs::path withExtension( fs::path path, char const * extension ) { return path.replace_extension( extension ); }

// What it printed, on either stream, and how it ended.
struct Printed {
   std::string text;
   int waitStatus = -1;
};

Printed maintsim( fs::path const & scenario ) {
   std::string const command = "'" RATEMON_MAINTSIM_PATH "' '" + scenario.string() + "' 2>&1";
   std::FILE * const pipe = ::popen( command.c_str(), "r" );
   if( !pipe ) return {};
   Printed run;
   char chunk[4096];
   for( std::size_t n = 0; ( n = std::fread( chunk, 1, sizeof chunk, pipe ) ) > 0; ) run.text.append( chunk, n );
   run.waitStatus = ::pclose( pipe );
   return run;
}

}  // namespace

class Example : public ::testing::TestWithParam<fs::path> {};

TEST_P( Example, tellsItsStoryAndTheSameEveryTime ) {
   std::ifstream in( withExtension( GetParam(), ".expected" ) );
   ASSERT_TRUE( in ) << GetParam() << " has no .expected file";
   std::string const expected{ std::istreambuf_iterator<char>( in ), {} };
   Printed const first = maintsim( GetParam() );
   EXPECT_EQ( first.waitStatus, 0 );
   EXPECT_EQ( first.text, expected );
   EXPECT_EQ( maintsim( GetParam() ).text, first.text );
}

INSTANTIATE_TEST_SUITE_P( Scenarios, Example, ::testing::ValuesIn( scenarios() ), []( auto const & tested ) {
   std::string name = tested.param.stem();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
} );

}  // namespace Test
