// Another configuration while units are on their way.
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

TEST_F( Reload, aLinkThatJoinsAUnitOnItsWayIsWaitedFor ) {
   begin( fileWith( "", "up1" ) );
   traffic( "up2", 1 * Mbps );
   enter( "fabric" );
   advance( 20 );
   reload( fileWith( "" ) );
   advance( 60 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::loud );
   EXPECT_TRUE( window( "fabric" )->intf( Lumo::IntfId( "up2" ) ) );
   traffic( "up2", 0 );
   advance( 40 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
}

TEST_F( Reload, andOneThatLeavesItIsNot ) {
   begin( fileWith( "" ) );
   traffic( "up2", 1 * Mbps );
   enter( "fabric" );
   advance( 40 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   reload( fileWith( "", "up1" ) );
   advance( 10 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_FALSE( monitored( "up2" ) );
}

TEST_F( Reload, whatJoinsAUnitInMaintenanceHasToBeProvenBeforeItIsReadyAgain ) {
   begin( fileWith( "", "up1" ) );
   enter( "fabric" );
   advance( 30 );
   EXPECT_TRUE( ready( "fabric" ) );
   reload( fileWith( "" ) );
   EXPECT_FALSE( ready( "fabric" ) );
   advance( 40 );
   EXPECT_TRUE( ready( "fabric" ) );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::underway );
}

TEST_F( Reload, whatIsLeftOutStaysSo ) {
   begin( fileWith( "" ) );
   traffic( "up2", 1 * Mbps );
   enter( "fabric", { "up2" } );
   advance( 20 );
   reload( fileWith( "", "up1, up2, down1" ) );
   advance( 60 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::leftOut );
   EXPECT_EQ( verdict( "fabric", "down1" ), Verdict::quiet );
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
