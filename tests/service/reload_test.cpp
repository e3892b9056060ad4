// Another configuration while units are on their way. tests/lives/ has many more, and judges what becomes of the proof.
#include "Box.h"

namespace Service {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Reload : public Box {
 protected:
   static std::string without( std::string const & unit, std::string const & file ) {
      std::string const line = "  " + unit + ": {";
      auto const at = file.find( line );
      return file.substr( 0, at ) + file.substr( file.find( '\n', at ) + 1 );
   }
};

TEST_F( Reload, aUnitThatIsNotActiveIsNotTakenAway ) {
   begin( fileWith( "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp] } ]\n" ) );
   std::string const file = without( "fabric", fileWith( "" ) );
   enter( "fabric" );
   std::string const before = records();
   EXPECT_THAT( reload( file ), ElementsAre( "unit fabric cannot be taken away: it is entering, not active" ) );
   EXPECT_EQ( before, records() );
   EXPECT_EQ( service_->config().units.size(), 3u );
   advance( 30 );
   EXPECT_EQ( reload( file ).size(), 1u );
   exit( "fabric" );
   EXPECT_EQ( reload( file ).size(), 1u );
   programEnds( "fabric", "no" );
   EXPECT_THAT( reload( file ), ElementsAre( "unit fabric cannot be taken away: it is failed, not active" ) );
   exit( "fabric" );
   programEnds( "fabric" );
   EXPECT_THAT( reload( file ), IsEmpty() );
   EXPECT_FALSE( state_.unitStatus->status( "fabric" ) );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::unknownUnit );

   // Its windows stay, and what comes back under its name goes on with the generations.
   EXPECT_EQ( window( "fabric" )->windowName(), "fabric#1" );
   EXPECT_THAT( reload( fileWith( "" ) ), IsEmpty() );
   EXPECT_EQ( enter( "fabric" ).generation, 4u );
}

// Both links go to another group with another profile, and one comes along.
TEST_F( Reload, aLinkThatStaysIsMonitoredOnWithoutABreak ) {
   begin( fileWith( "" ) );
   traffic( "up1", 500 * kbps );
   enter( "fabric" );
   advance( 20 );
   std::string file = fileWith( "", "down1" );
   file.replace( file.find( "  downs:" ), 8, "  others: { interfaces: [up1, up2], profile: fast }\n  downs:" );
   file.replace( file.find( "[ups]" ), 5, "[ups, others]" );
   EXPECT_THAT( reload( file ), IsEmpty() );
   advance( 1 );
   auto const & monitors = *state_.monIntfStatus;
   EXPECT_EQ( monitors.monIntfStatus( Lumo::IntfId( "up1" ) )->startTime(), 1000 );
   EXPECT_EQ( monitors.monIntfStatus( Lumo::IntfId( "up1" ) )->profileName(), "fast" );
   EXPECT_EQ( monitors.monIntfStatus( Lumo::IntfId( "down1" ) )->startTime(), 1020 );
   advance( 40 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );  // 500 kbps are below the new threshold
}

TEST_F( Reload, aUnitOnItsWayKeepsItsStagesAndTheNextRequestTakesTheNew ) {
   begin( fileWith( "" ) );
   enter( "fabric" );
   advance( 20 );
   reload( fileWith( "  maintEnter: [ { name: ratemon }, { name: verify }, { name: bgp, run: [/bgp] } ]\n" ) );
   advance( 10 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   exit( "fabric" );
   enter( "fabric" );
   advance( 30 );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
}

}  // namespace
}  // namespace Service
