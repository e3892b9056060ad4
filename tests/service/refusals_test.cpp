// What a request is answered, and that a refusal changes nothing; interfaces that are left out of the proof.
#include "Box.h"

namespace Service {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char const * someWrong = "up1, eth9, eth1.7";

class Refusals : public Box {
 protected:
   void subInterface() { link( "eth1.7", true, Lumo::IntfKind::subIntf ); }
   UnitService::Answer refused( std::string const & unit, std::vector<std::string> const & without = {} ) {
      std::string const before = records();
      auto const would = service_->units().wouldEnter( unit, without );
      auto const answer = enter( unit, without );
      EXPECT_EQ( answer.outcome, Requested::refused );
      EXPECT_EQ( answer.generation, 0u );
      EXPECT_EQ( answer.why, would.why );
      EXPECT_EQ( before, records() );
      return answer;
   }
};

TEST_F( Refusals, whatCanNeverBeProvenRefusesTheEntryEachWithItsReason ) {
   subInterface();
   begin( fileWith( "", someWrong ) );
   EXPECT_THAT( refused( "fabric" ).why,
                ElementsAre( "eth9: there is no such link; to go on without proof for it: --without eth9",
                             ::testing::AllOf( ::testing::StartsWith( "eth1.7: " ),
                                               ::testing::EndsWith( "--without eth1.7" ) ) ) );
   EXPECT_THAT( refused( "fabric", { "eth9" } ).why, ElementsAre( HasSubstr( "eth1.7" ) ) );
   auto const started = enter( "fabric", { "eth1.7", "eth9" } );
   EXPECT_EQ( started.outcome, Requested::started );
   EXPECT_EQ( started.generation, 1u );
   EXPECT_THAT( started.why, ElementsAre( "eth1.7: left out of the proof", "eth9: left out of the proof" ) );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( verdict( "fabric", "eth9" ), Verdict::leftOut );
}

TEST_F( Refusals, warningsNameThemBeforeAnybodyAsks ) {
   subInterface();
   begin( fileWith( "", someWrong ) );
   EXPECT_THAT( service_->warnings(), ElementsAre( "unit fabric: eth9: there is no such link",
                                                   ::testing::StartsWith( "unit fabric: eth1.7: " ) ) );
   link( "eth9", false );
   EXPECT_EQ( service_->warnings().size(), 1u );
}

// up2 is in two groups. That of a unit which enters comes before that of one which does not; of two that do, the first
// in the file counts.
TEST_F( Refusals, aLinkThatIsNeverShutIsNoneToEnterWith ) {
   neverShut_[Lumo::IntfId( "up2" )] = "it is the loopback";
   begin( R"(
profiles:
  plain: { threshold: 100kbps }
  shuts: { threshold: 100kbps, shutdown: true }
default-profile: plain
groups:
  ups: { interfaces: [up1, up2], profile: plain }
  downs: { interfaces: [up2, down1], profile: shuts }
units:
  fabric: { groups: [ups] }
  rack: { groups: [downs] }
)" );
   auto const & units = service_->units();
   EXPECT_THAT( units.shutBy( "fabric", {} ), IsEmpty() );
   EXPECT_THAT( units.shutBy( "rack", {} ), ElementsAre( Lumo::IntfId( "up2" ), Lumo::IntfId( "down1" ) ) );
   EXPECT_THAT( units.shutBy( "nobody", {} ), IsEmpty() );
   std::string const why = "up2: its profile shuts it down, and it is the loopback";
   EXPECT_THAT( service_->warnings(), ElementsAre( "unit rack: " + why ) );
   EXPECT_THAT( refused( "rack" ).why, ElementsAre( why + "; to leave it as it is: --without up2" ) );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::started );
   EXPECT_THAT( units.shutBy( "rack", {} ), ElementsAre( Lumo::IntfId( "down1" ) ) );
   EXPECT_EQ( enter( "rack", { "up2" } ).outcome, Requested::started );
}

// Also by the default profile, and also where it was left out of an earlier stay.
TEST_F( Refusals, whatAnEntryWouldShutDownIsAskedAnew ) {
   std::string file = fileWith( "" );
   begin( file );
   enter( "rack", { "up2" } );
   exit( "rack" );
   reload( file.replace( file.find( "load-interval: 30s" ), 18, "load-interval: 30s, shutdown: true" ) );
   auto const & units = service_->units();
   // down1 is in a group with a profile of its own.
   EXPECT_THAT( units.shutBy( "rack", {} ), ElementsAre( Lumo::IntfId( "up2" ) ) );
   EXPECT_THAT( units.shutBy( "rack", { "up2" } ), IsEmpty() );
}

TEST_F( Refusals, onlyInterfacesOfTheUnitCanBeLeftOut ) {
   begin( fileWith( "" ) );
   auto const why = refused( "fabric", { "up2", "down1", "up3" } ).why;
   EXPECT_THAT( why, ElementsAre( "down1: not an interface of unit fabric, so it cannot be left out; its interfaces "
                                  "are: up1, up2",
                                  ::testing::StartsWith( "up3: not an interface of unit fabric" ) ) );
   enter( "fabric" );
   EXPECT_THAT( refused( "fabric", { "down1" } ).why, ElementsAre( ::testing::StartsWith( "down1: " ) ) );
}

TEST_F( Refusals, aUnitThatIsLeavingHasToBeActiveFirst ) {
   begin( fileWith( "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp] } ]\n" ) );
   enter( "fabric" );
   exit( "fabric" );
   EXPECT_THAT( refused( "fabric" ).why,
                ElementsAre( "unit fabric is still leaving maintenance; try again when it is active" ) );
   EXPECT_EQ( exit( "fabric" ).outcome, Requested::already );
   programEnds( "fabric" );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::started );
}

TEST_F( Refusals, unknownUnitsAreNamedAsSuch ) {
   begin( fileWith( "" ) );
   std::string const before = records();
   EXPECT_EQ( enter( "nowhere" ).outcome, Requested::unknownUnit );
   EXPECT_EQ( exit( "nowhere" ).outcome, Requested::unknownUnit );
   EXPECT_EQ( service_->units().wouldEnter( "nowhere", {} ).outcome, Requested::unknownUnit );
   EXPECT_EQ( before, records() );
}

TEST_F( Refusals, whatWouldHappenIsSaidAndDoesNot ) {
   begin( fileWith( "" ) );
   std::string const before = records();
   auto const would = service_->units().wouldEnter( "fabric", { "up2" } );
   EXPECT_EQ( would.outcome, Requested::started );
   EXPECT_EQ( would.generation, 1u );
   EXPECT_THAT( would.why, ElementsAre( "up2: left out of the proof" ) );
   EXPECT_EQ( before, records() );
   enter( "fabric" );
   EXPECT_EQ( service_->units().wouldEnter( "fabric", {} ).outcome, Requested::already );
}

class Without : public Refusals {};

TEST_F( Without, noStageWaitsForALinkThatIsLeftOut ) {
   begin( fileWith( "" ) );
   traffic( "up2", 3 * Mbps );
   enter( "fabric", { "up2" } );
   EXPECT_FALSE( monitored( "up2" ) );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_TRUE( ready( "fabric" ) );
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::leftOut );
   EXPECT_TRUE( window( "fabric" )->intf( Lumo::IntfId( "up2" ) )->leftOut() );
   // Of this stay only.
   auto const unit = state_.unitStatus->status( "fabric" );
   Group::GroupKey const ups{ Group::GroupType::intf, "ups" };
   EXPECT_FALSE( unit->group( ups ) );
   exit( "fabric" );
   EXPECT_TRUE( unit->group( ups ) );
   enter( "fabric" );
   EXPECT_TRUE( monitored( "up2" ) );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::entering );
}

TEST_F( Without, moreIsLeftOutOfAUnitThatWaits ) {
   begin( fileWith( "" ) );
   traffic( "up2", 3 * Mbps );
   enter( "fabric" );
   advance( 100 );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
   auto const answer = enter( "fabric", { "up2" } );
   EXPECT_EQ( answer.outcome, Requested::already );
   EXPECT_EQ( answer.generation, 1u );
   EXPECT_THAT( answer.why, ElementsAre( "up2: left out of the proof" ) );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_THAT( events( "request" ),
                ::testing::Contains( ::testing::StartsWith( "fabric: without up2 as well, asked for by " ) ) );
}

TEST_F( Without, andOfOneInMaintenance ) {
   begin( fileWith( "" ) );
   enter( "fabric" );
   advance( 30 );
   traffic( "up2", 3 * Mbps );
   advance( 20 );
   EXPECT_FALSE( ready( "fabric" ) );
   EXPECT_THAT( events( "disturbed" ), ElementsAre( "fabric: traffic is back: up2" ) );
   enter( "fabric", { "up2" } );
   EXPECT_TRUE( ready( "fabric" ) );
   EXPECT_THAT( events( "quiet again" ), ElementsAre( "fabric: no traffic is left" ) );
   enter( "fabric" );  // without a word of it, nothing changes
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::leftOut );
   // What would refuse a new entry does not touch one that has happened.
   linkGone( "up1" );
   EXPECT_EQ( enter( "fabric", { "up1" } ).outcome, Requested::already );
   linkGone( "up2" );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::already );
}

TEST_F( Without, aUnitOfWhichEverythingIsLeftOutHasNothingToProve ) {
   begin( fileWith( "" ) );
   traffic( "up1", 3 * Mbps );
   enter( "fabric", { "up1", "up2" } );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_THAT( service_->views().ready( "fabric" )->why,
                ::testing::Contains( Text( "nothing to prove: every interface is left out" ) ) );
}

}  // namespace
}  // namespace Service
