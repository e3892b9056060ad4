// What an operator and a script read: answers as JSON, with null and never 0 for what nobody knows.
#include "Box.h"

#include "links/HeldLinks.h"
#include "records/Errdisable.h"

namespace Service {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ViewsTest : public Box {
 protected:
   std::string unit( std::string const & name ) { return Kel::toJson( Kel::value( *service_->views().unit( name ) ) ); }
   std::vector<std::string> why( std::string const & name ) {
      std::vector<std::string> texts;
      auto const answer = service_->views().ready( name );
      for( Text const & text : answer->why ) texts.push_back( text.str() );
      return texts;
   }
   std::string interfaceJson( std::string const & name ) {
      auto const answer = service_->views().interfaces();
      for( InterfaceAnswer const & a : answer.interfaces ) {
         if( a.interface == Text( name ) ) return Kel::toJson( Kel::value( a ) );
      }
      return "";
   }
};

TEST_F( ViewsTest, ofAnActiveUnitOnlyItsInterfacesAreKnown ) {
   begin( fileWith( "", "up1" ) );
   EXPECT_EQ( unit( "fabric" ),
              R"({"unit": "fabric", "state": "active", "generation": 0, "stage": null, "since": null, )"
              R"("requestedBy": null, "ready": false, "provenUntil": null, "disturbed": false, "without": [], )"
              R"("note": null, "now": 1000, "interfaces": [{"interface": "up1", "verdict": null, "since": null, )"
              R"("settled": null, )"
              R"("quietSince": null, "stillNeededSeconds": null, "inBitsRate": null, "outBitsRate": null, )"
              R"("thresholdBitsRate": null, "loadIntervalSeconds": null, "pace": null, "quietInSeconds": null, )"
              R"("lastLoud": null, "breaks": null, )"
              R"("spikes": null, "why": null}]})" );
   EXPECT_THAT( why( "fabric" ), ElementsAre( "unit fabric is active" ) );
   EXPECT_FALSE( service_->views().unit( "nowhere" ) );
   EXPECT_FALSE( service_->views().ready( "nowhere" ) );
   EXPECT_EQ( service_->views().unitNames(), "fabric, rack, shelf" );
}

TEST_F( ViewsTest, aWaitingUnitSaysWhatItLacks ) {
   begin( fileWith( "", "up1" ) );
   enter( "fabric" );
   EXPECT_THAT( unit( "fabric" ),
                AllOf( HasSubstr( R"("state": "entering", "generation": 1, "stage": "ratemon", )"
                                  R"("since": 1000, "requestedBy": "ann", "ready": false)" ),
                       HasSubstr( R"("verdict": "waiting", "since": 1000, "settled": false, "quietSince": null, )"
                                  R"("stillNeededSeconds": null)" ),
                       HasSubstr( R"("inBitsRate": null, "outBitsRate": null, )"
                                  R"("thresholdBitsRate": 1e+05, "loadIntervalSeconds": 30)" ) ) );
   EXPECT_THAT( why( "fabric" ), ElementsAre( ::testing::StartsWith( "up1: waiting: " ) ) );
   traffic( "up1", 0, 3 * Mbps );
   advance( 10 );
   EXPECT_THAT( unit( "fabric" ),
                AllOf( HasSubstr( R"("verdict": "loud", "since": 1010)" ),
                       HasSubstr( R"("inBitsRate": 0, "outBitsRate": 3e+06)" ),
                       HasSubstr( R"("lastLoud": {"time": 1010, "direction": "out", "bitsRate": 3e+06})" ),
                       HasSubstr( R"("stillNeededSeconds": null)" ) ) );
   EXPECT_THAT( why( "fabric" ),
                ElementsAre( AllOf( ::testing::StartsWith( "up1: loud: out 3 Mbps" ), HasSubstr( "100 kbps" ) ) ) );
   traffic( "up1", 0 );
   advance( 20 );
   EXPECT_THAT( unit( "fabric" ), AllOf( HasSubstr( R"("verdict": "quiet", "since": 1020, "settled": false, )"
                                                    R"("quietSince": 1010, "stillNeededSeconds": 10)" ) ) );
}

TEST_F( ViewsTest, whatIsReadyForAnotherReasonThanQuietSaysSo ) {
   begin( fileWith( "", "up1, up2, down1" ) );
   link( "up2", false );
   enter( "fabric", { "down1" } );
   EXPECT_THAT( why( "fabric" ),
                ElementsAre( ::testing::StartsWith( "up1: waiting: " ), ::testing::StartsWith( "up2: down: " ) ) );
   advance( 30 );
   ASSERT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_THAT( unit( "fabric" ), HasSubstr( R"("without": ["down1"])" ) );
   EXPECT_THAT( why( "fabric" ),
                ElementsAre( ::testing::StartsWith( "up2: down: " ), ::testing::StartsWith( "down1: left out: " ) ) );
}

TEST_F( ViewsTest, aUnitOnItsWayOutIsNotReadyAndNamesWhoAsked ) {
   begin( fileWith( "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp] } ]\n" ) );
   enter( "fabric" );
   advance( 35 );
   exit( "fabric" );
   EXPECT_THAT( unit( "fabric" ), HasSubstr( R"("state": "leaving", "generation": 2, "stage": "bgp", "since": 1035, )"
                                             R"("requestedBy": "bob", "ready": false)" ) );
   EXPECT_THAT( why( "fabric" ), ElementsAre( "unit fabric is leaving" ) );
   advance( 5 );
   programEnds( "fabric" );
   EXPECT_THAT( unit( "fabric" ), HasSubstr( R"("state": "active", "generation": 2, "stage": null, "since": 1040)" ) );
}

TEST_F( ViewsTest, interfacesAreShownAsTheyAreWhateverTheirUnitsDo ) {
   begin( fileWith( "", "up1, eth9" ) );
   EXPECT_EQ( interfaceJson( "up1" ),
              R"({"interface": "up1", "operStatus": "up", "monitoring": null, "shutDown": false, "profile": "slow", )"
              R"("inBitsRate": null, "outBitsRate": null, "thresholdBitsRate": 1e+05, "sampleIntervalSeconds": 10, )"
              R"("loadIntervalSeconds": 30, "totalSamples": null, "lastSampleSecondsAgo": null, )"
              R"("units": ["fabric"]})" );
   EXPECT_THAT( interfaceJson( "eth9" ), HasSubstr( R"("operStatus": "missing")" ) );
   EXPECT_THAT( interfaceJson( "down1" ),
                AllOf( HasSubstr( R"("profile": "fast")" ), HasSubstr( R"("units": ["rack", "shelf"])" ) ) );
   traffic( "up1", 2 * Mbps );
   enter( "fabric", { "eth9" } );
   // The first sample of a monitor has no rates, which are then unknown and not 0.
   EXPECT_THAT( interfaceJson( "up1" ), AllOf( HasSubstr( R"("monitoring": "thresholdMonitoring", "shutDown": false)" ),
                                               HasSubstr( R"("inBitsRate": null, "outBitsRate": null)" ),
                                               HasSubstr( R"("totalSamples": 0, "lastSampleSecondsAgo": null)" ) ) );
   advance( 13 );
   EXPECT_THAT( interfaceJson( "up1" ), AllOf( HasSubstr( R"("inBitsRate": 2e+06, "outBitsRate": 0)" ),
                                               HasSubstr( R"("lastSampleSecondsAgo": 3)" ) ) );
   auto const cause =
      Kel::dynamicPtrCast<Errdisable::CauseStatus>( state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   ASSERT_TRUE( cause );
   inTurn( [&] { cause->intfStatusIs( Lumo::IntfId( "up1" ), world_.now() ); } );
   EXPECT_THAT( interfaceJson( "up1" ), HasSubstr( R"("shutDown": true)" ) );
}

TEST_F( ViewsTest, anInterfaceIsExplainedInEveryUnitThatHasIt ) {
   begin( fileWith( "" ) );
   enter( "rack" );
   auto const found = service_->views().explain( "up2" );
   ASSERT_EQ( found.size(), 2u );
   EXPECT_EQ( found[0].unit, "fabric" );
   EXPECT_EQ( found[1].unit, "rack" );
   ASSERT_EQ( found[1].interfaces.size(), 1u );
   EXPECT_EQ( found[1].interfaces[0].interface, "up2" );
   EXPECT_EQ( found[1].interfaces[0].verdict, Text( "waiting" ) );
   EXPECT_FALSE( found[0].interfaces[0].verdict );
   EXPECT_THAT( service_->views().explain( "nobody" ), IsEmpty() );
}

TEST_F( ViewsTest, whyIsFollowedByWhatLinkControlHasToSay ) {
   begin( fileWith( "", "up1" ) );
   enter( "fabric" );
   Kel::Ptr<HeldLink> const held( new HeldLink( Lumo::IntfId( "up1" ) ) );
   held->stateIs( HoldState::held );
   inTurn( [&] { heldLinkDir( *database_ )->heldIs( held ); } );
   EXPECT_THAT( why( "fabric" ),
                ElementsAre( ::testing::EndsWith( "no reading yet: its monitoring has just begun" ) ) );
   for( auto const & [state, beforeBoot, trouble, remark] :
        std::vector<std::tuple<HoldState, bool, std::string, std::string>>{
           { HoldState::held, true, "", "held since before boot" },
           { HoldState::raised, true, "", "set up by somebody else while held" },
           { HoldState::taking, false, "cannot be taken down: no", "cannot be taken down: no" },
        } ) {
      held->stateIs( state );
      held->sinceBeforeBootIs( beforeBoot );
      held->troubleIs( Text( trouble ) );
      EXPECT_THAT( why( "fabric" ), ElementsAre( ::testing::EndsWith( "; " + remark ) ) );
   }
}

TEST_F( ViewsTest, anAnswerToARequestSaysWhatBecameOfIt ) {
   auto const said = []( UnitService::Answer const & answer ) {
      return Kel::toJson( Kel::value( Views::request( "enter", "fabric", answer ) ) );
   };
   EXPECT_EQ( said( { Requested::started, 7 } ),
              R"({"request": "enter", "unit": "fabric", "result": "started", "generation": 7, "why": []})" );
   EXPECT_EQ(
      said( { Requested::refused, 0, { "eth9: no" } } ),
      R"({"request": "enter", "unit": "fabric", "result": "refused", "generation": null, "why": ["eth9: no"]})" );
   EXPECT_THAT( said( { Requested::already, 3 } ), HasSubstr( R"("result": "already", "generation": 3)" ) );
   EXPECT_THAT( said( { Requested::unknownUnit } ), HasSubstr( R"("why": ["there is no unit fabric"])" ) );
}

}  // namespace
}  // namespace Service
