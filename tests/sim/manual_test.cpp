// The scenarios that stand in the manual print what the manual says.
#include <fstream>

#include "ScenarioFixture.h"

namespace Test {

namespace {

struct ManualScenario {
   std::string lines;
   std::vector<std::string> answers;
};

// Between two fences; what it prints is the indented answers behind it, up to the next line of another kind.
std::vector<ManualScenario> manualScenarios() {
   std::ifstream in( RATEMON_SOURCE_DIR "/docs/maintsim.md" );
   std::vector<ManualScenario> found;
   bool fenced = false;
   bool answered = false;
   std::string const answer = "    {\"t\": ";
   for( std::string line; std::getline( in, line ); ) {
      if( line == "```" ) {
         fenced = !fenced;
         if( fenced ) found.emplace_back();
         answered = true;
      } else if( fenced ) {
         found.back().lines += line + "\n";
      } else if( answered && line.starts_with( answer ) ) {
         found.back().answers.push_back( line.substr( 4 ) );
      } else if( !line.empty() && !line.starts_with( "    $ maintsim" ) ) {
         answered = false;
      }
   }
   return found;
}

}  // namespace

class Manual : public ScenarioFixture, public ::testing::WithParamInterface<std::size_t> {};

TEST_P( Manual, printsWhatItSays ) {
   ManualScenario const scenario = manualScenarios().at( GetParam() );
   EXPECT_THAT( scenario.answers, ::testing::Not( ::testing::IsEmpty() ) );
   EXPECT_EQ( run( scenario.lines ), scenario.answers );
}

INSTANTIATE_TEST_SUITE_P( Scenarios, Manual, ::testing::Range( std::size_t{ 0 }, manualScenarios().size() ) );

}  // namespace Test
