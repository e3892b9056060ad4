// What an operator is told: which event each thing that happens makes, and what is kept of them.
#include "Box.h"

namespace Service {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

// "warning spike fabric#1 up2: out 4 Mbps"
std::string lineOf( Event const & event ) {
   std::string line = event.severity.str() + " " + event.kind.str();
   if( event.unit ) line += " " + event.unit->str();
   if( event.generation ) line += "#" + std::to_string( *event.generation );
   if( event.interface ) line += " " + event.interface->str();
   return line + ": " + event.text.str();
}

}  // namespace

class Events : public Box {
 protected:
   // All since the last call.
   std::vector<std::string> news() {
      std::vector<std::string> lines;
      for( Event const & event : std::exchange( events_, {} ) ) lines.push_back( lineOf( event ) );
      return lines;
   }
};

// As an operator would tell it: each step, and what is heard of it.
TEST_F( Events, tellOfEverythingThatHappensToAUnit ) {
   struct Step {
      char const * what;
      std::function<void()> happens;
      std::vector<std::string> heard;
   };
   begin( fileWith( "" ) );
   advance( 5 );
   std::vector<Step> const story{
      { "a refusal", [&] { enter( "fabric", { "eth9" } ); }, {} },
      { "links of the configuration, and others",
        [&] {
           link( "up1", false );
           link( "other", false );
           link( "up1", true );
           linkGone( "up2" );
           link( "up2", true );
        },
        {} },
      { "an entry",
        [&] {
           traffic( "up2", 0, 4 * Mbps );
           enter( "fabric" );
        },
        {} },
      { "its readings", [&] { advance( 50 ); }, {} },
      { "the last link drains",
        [&] {
           traffic( "up2", 0 );
           advance( 60 );
        },
        {} },
      { "traffic comes back",
        [&] {
           traffic( "up2", 4 * Mbps );
           advance( 25 );
        },
        {} },
      { "and goes",
        [&] {
           traffic( "up2", 0 );
           advance( 60 );
        },
        {} },
      { "a link is pulled", [&] { link( "up1", false ); }, {} },
      { "reloads",
        [&] {
           reload( fileWith( "" ) );
           std::string without = fileWith( "" );
           without.erase( without.find( "  fabric:" ), std::string( "  fabric: { groups: [ups] }\n" ).size() );
           reload( without );
        },
        {} },
      { "the exit",
        [&] {
           exit( "fabric" );
           advance( 30 );
        },
        {} },
   };
   for( Step const & step : story ) {
      static_cast<void>( news() );
      step.happens();
      auto const n = news();
      std::cout << "== " << step.what << "\n";
      for( auto const & l : n ) std::cout << "              \"" << l << "\",\n";
   }
}

}  // namespace Service
