// The service and the plug-in die in the middle of each stage and are started again over the records that are left.
#include "Box.h"

namespace Service {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char const * allStages = R"(  maintEnter:
    - { name: bgp, run: [/bgp, enter], timeout: 1min, on-timeout: continue }
    - { name: ratemon, timeout: 5min, on-timeout: rollback }
    - { name: verify, timeout: 5min, on-timeout: rollback }
  maintExit:
    - { name: pause, run: [/pause] }
    - { name: ratemon }
    - { name: bgp, run: [/bgp, exit] }
)";

class Restart : public Box {
 protected:
   // Away for so long.
   void restart( double seconds, std::string const & file = fileWith( allStages ) ) {
      crash();
      advance( seconds );
      begin( file );
   }
   // At 1030 "ratemon" is over, and up1 carries 1 Mbps from then on.
   void waitInVerify() {
      enter( "fabric" );
      programEnds( "fabric" );
      traffic( "up2", 1 * Mbps );
      advance( 35 );
      traffic( "up2", 0 );
      traffic( "up1", 1 * Mbps );
      advance( 40 );
      ASSERT_EQ( stage( "fabric" ), "verify" );
   }
};

TEST_F( Restart, aProgramIsRunAnewAndItsDeadlineCountsFromItsBegin ) {
   begin( fileWith( allStages ) );
   enter( "fabric" );
   advance( 30 );
   restart( 20 );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   EXPECT_THAT( programs_.started, ElementsAre( "bgp enter fabric 1" ) );
   advance( 9 );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   advance( 1 );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( stages( "fabric" ), "bgp timed out, ratemon done, verify done" );
   EXPECT_EQ( window( "fabric" )->requestedBy(), "ann" );
}

TEST_F( Restart, aDeadlineThatPassedMeanwhileHasPassed ) {
   begin( fileWith( allStages ) );
   enter( "fabric" );
   restart( 61 );
   EXPECT_EQ( stages( "fabric" ), "bgp timed out, ratemon running" );
}

TEST_F( Restart, aClockThatBeganAnewGivesTheStageItsTimeOnceMore ) {
   begin( fileWith( allStages ) );
   enter( "fabric" );
   crash();
   auto const windows = database_->getEntity<Evidence::WindowDir>( Maintenance::Path::windows );
   auto run = *windows->window( "fabric#1" )->stageRun( 0 );
   run.began = 100000;
   windows->window( "fabric#1" )->stageRunIs( 0, run );
   begin( fileWith( allStages ) );
   advance( 59 );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   advance( 1 );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
}

TEST_F( Restart, verifyGoesOnWithTheInterfacesMonitoredAsBefore ) {
   begin( fileWith( allStages ) );
   waitInVerify();
   auto const progress = [this] { return state_.enter.progress->progress( "fabric#1" ); };
   EXPECT_FALSE( progress()->stage( "ratemon" ) );
   restart( 5 );
   EXPECT_EQ( stage( "fabric" ), "verify" );
   EXPECT_TRUE( progress()->stage( "ratemon" ) );
   EXPECT_TRUE( progress()->stage( "verify" ) );
   EXPECT_TRUE( monitored( "up1" ) );
   EXPECT_TRUE( monitored( "up2" ) );
   EXPECT_FALSE( ready( "fabric" ) );
   // The mark of "ratemon" is there, and counts for nothing.
   advance( 200 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   traffic( "up1", 0 );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   advance( 20 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( stages( "fabric" ), "bgp done, ratemon done, verify done" );
   EXPECT_EQ( stageRecords(), 0u );
}

TEST_F( Restart, aUnitOnItsWayOutGoesOnInEachOfItsStages ) {
   begin( fileWith( allStages ) );
   enter( "fabric" );
   programEnds( "fabric" );
   advance( 40 );
   exit( "fabric" );
   restart( 1 );
   EXPECT_EQ( stage( "fabric" ), "pause" );
   EXPECT_THAT( programs_.started, ElementsAre( "pause exit fabric 2" ) );
   programEnds( "fabric" );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   restart( 1 );
   EXPECT_THAT( programs_.started, ElementsAre( "bgp exit fabric 2" ) );
   programEnds( "fabric" );
   EXPECT_EQ( state( "fabric" ), State::active );
   EXPECT_EQ( stages( "fabric" ), "bgp done, ratemon done, verify done, pause done, ratemon done, bgp done" );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::completed );
   EXPECT_EQ( stageRecords(), 0u );
}

TEST_F( Restart, aLinkThatWasSeenAndIsGoneNowIsNotMissing ) {
   begin( fileWith( allStages ) );
   enter( "fabric" );
   programEnds( "fabric" );
   crash();
   linkGone( "up2" );
   begin( fileWith( allStages ) );
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::gone );
   advance( 29 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   advance( 1 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
}

TEST_F( Restart, aStageThatIsNoLongerThereIsFollowedByTheOneAfterTheLastThatHasEnded ) {
   std::string const more = "  maintEnter: [ { name: ratemon }, { name: wait, run: [/wait] }, { name: verify } ]\n";
   begin( fileWith( more ) );
   traffic( "up1", 1 * Mbps );
   enter( "fabric" );
   advance( 30 );
   traffic( "up1", 0 );
   advance( 30 );
   ASSERT_EQ( stage( "fabric" ), "wait" );
   traffic( "up2", 1 * Mbps );
   restart( 1, fileWith( "" ) );
   EXPECT_EQ( stages( "fabric" ), "ratemon done, wait given up, verify running" );
   EXPECT_TRUE( monitored( "up1" ) );
   advance( 30 );
   EXPECT_EQ( verdict( "fabric", "up2" ), Verdict::loud );
   EXPECT_EQ( state( "fabric" ), State::entering );
}

TEST_F( Restart, aHeldDeadlineIsToldOfOnce ) {
   std::string const held = "  maintEnter: [ { name: ratemon, timeout: 20s, on-timeout: hold }, { name: verify } ]\n";
   begin( fileWith( held ) );
   traffic( "up1", 1 * Mbps );
   enter( "fabric" );
   advance( 25 );
   ASSERT_EQ( events( "deadline" ).size(), 1u );
   restart( 1, fileWith( held ) );
   advance( 60 );
   EXPECT_THAT( events( "deadline" ), IsEmpty() );
   EXPECT_EQ( window( "fabric" )->stageRun( 0 )->deadlinePassed, 1020 );
}

TEST_F( Restart, aUnitOnItsWayInWhoseWindowIsLostIsBroughtBack ) {
   begin( fileWith( "" ) );
   enter( "fabric" );
   crash();
   database_->getEntity<Evidence::WindowDir>( Maintenance::Path::windows )->windowDelAll();
   begin( fileWith( "" ) );
   EXPECT_EQ( state( "fabric" ), State::active );
   EXPECT_EQ( window( "fabric" )->exitRequestedBy(), "maintd" );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::rolledBack );
   EXPECT_EQ( stageRecords(), 0u );
}

TEST_F( Restart, aUnitInMaintenanceWhoseWindowIsLostStaysThere ) {
   begin( fileWith( "" ) );
   enter( "fabric" );
   advance( 30 );
   crash();
   database_->getEntity<Evidence::WindowDir>( Maintenance::Path::windows )->windowDelAll();
   begin( fileWith( "" ) );
   advance( 60 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_TRUE( ready( "fabric" ) );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::underway );
}

TEST_F( Restart, recordsOfInstancesThatAreNobodysGo ) {
   begin( fileWith( "" ) );
   enter( "fabric" );
   crash();
   for( auto * stage : { &state_.enter, &state_.exit } ) {
      for( char const * instance : { "fabric#7", "rack#1" } ) {
         stage->completion->statusIs( instance );
         stage->progress->progressIs( instance )->stageIs( "ratemon", true );
      }
   }
   begin( fileWith( "" ) );
   EXPECT_EQ( stageRecords(), 2u );
   EXPECT_TRUE( state_.enter.progress->progress( "fabric#1" ) );
   EXPECT_TRUE( state_.enter.completion->status( "fabric#1" ) );
}

TEST_F( Restart, theWindowOfAUnitThatIsNoLongerConfiguredIsAbandoned ) {
   begin( fileWith( "" ) );
   enter( "rack" );
   advance( 30 );
   enter( "shelf" );
   std::string file = fileWith( "" );
   for( char const * unit : { "  rack: {", "  shelf: {" } ) {
      auto const at = file.find( unit );
      file.erase( at, file.find( '\n', at ) + 1 - at );
   }
   restart( 10, file );
   EXPECT_EQ( window( "rack" )->outcome(), Ended::abandoned );
   EXPECT_EQ( window( "rack" )->ended(), 1040 );
   EXPECT_EQ( window( "shelf" )->outcome(), Ended::abandoned );
   EXPECT_EQ( stageRecords(), 0u );
   EXPECT_EQ( service_->ledger().accounts()->units(), 0u );
}

}  // namespace
}  // namespace Service
