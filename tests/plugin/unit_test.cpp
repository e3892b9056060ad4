// Which interfaces a unit monitors, how units share them, and when a unit is done.
#include "DrainStory.h"

namespace Test {

using Interface::IntfOperStatus;

class Units : public DrainStory {};

TEST_F( Units, withNothingToMonitorAreDoneAtOnce ) {
   unit( "empty", {} );
   unit( "subs", { "Ethernet1.5" } );
   unit( "down", { "Ethernet1" } );
   link( "Ethernet1", IntfOperStatus::down );
   start();
   for( auto const * name : { "empty", "subs", "down" } ) {
      enter( name );
      EXPECT_TRUE( enterComplete( name ) ) << name;
   }
}

// Whoever leaves first, and whether its link has gone down by then or not.
TEST_F( Units, leaveACommonInterfaceShutDownForTheOther ) {
   profile( "down", { .shutdown = true } );
   unit( "north", { "Ethernet1" } );
   unit( "south", { "Ethernet1" } );
   select( "Ethernet1", "down" );
   start();
   for( std::string const first : { "north", "south" } ) {
      for( auto const operStatus : { IntfOperStatus::up, IntfOperStatus::down } ) {
         SCOPED_TRACE( first + " leaves first, the link is " + enumName( operStatus ) );
         std::string const second = first == "north" ? "south" : "north";
         for( auto const & name : { first, second } ) {
            enter( name );
            finishEnter( name );
         }
         ASSERT_TRUE( shutDown( "Ethernet1" ) );
         double const since = *cause().intfStatus( Lumo::IntfId( "Ethernet1" ) );
         link( "Ethernet1", operStatus );
         advance( 60_s );
         exit( first );
         ASSERT_TRUE( shutDown( "Ethernet1" ) );
         EXPECT_EQ( *cause().intfStatus( Lumo::IntfId( "Ethernet1" ) ), since );
         EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::passiveMonitoring );
         exit( second );
         EXPECT_FALSE( shutDown( "Ethernet1" ) );
         finishExit( first );
         finishExit( second );
         link( "Ethernet1", IntfOperStatus::up );
      }
   }
}

// The link of a shared interface is down when one unit leaves: its monitoring stops for both.
// The exit comes in the turn in which the link goes down, before the tracker has looked at it.
TEST_F( Units, stopMonitoringASharedInterfaceThatIsDownWhenOneLeaves ) {
   unit( "north", { "Ethernet1" } );
   unit( "south", { "Ethernet1" } );
   start();
   enter( "north" );
   enter( "south" );
   std::vector<MonIntfState> states;
   world_.inTurn( [&] {
      link( "Ethernet1", IntfOperStatus::down );
      status( "north" ).genIdIs( 2 );
      status( "north" ).maintExitInstanceNameIs( instance( "north", 2 ) );
      state_.exit.progress->progressIs( instance( "north", 2 ) )->stageIs( Kel::String8( "ratemon" ), true );
      states.push_back( monitored( "Ethernet1" )->state() );
   } );
   EXPECT_EQ( states, std::vector{ MonIntfState::monitoringStopped } );
   EXPECT_FALSE( monitored( "Ethernet1" ) );  // then it left the other unit too, which has nothing more to wait for
   EXPECT_TRUE( enterComplete( "south" ) );
}

// With no profile left there is none to go on with for the other unit, which waits until somebody decides.
TEST_F( Units, stopMonitoringASharedInterfaceWithoutAnyProfileWhenOneLeaves ) {
   unit( "north", { "Ethernet1" } );
   unit( "south", { "Ethernet1" } );
   start();
   enter( "north" );
   enter( "south" );
   advance( 10_s );
   state_.profiles->configDelAll();
   exit( "north" );
   EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::monitoringStopped );
   advance( 60_s );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 1u );
   EXPECT_FALSE( enterComplete( "south" ) );
   exit( "south" );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
   EXPECT_TRUE( exitComplete( "south" ) );
}

TEST_F( Units, forgetTheViolationsOfInterfacesThatLeave ) {
   unit( "fabric", { "Ethernet1", "Ethernet2" } );
   start();
   enter( "fabric" );
   advance( 30_s );
   finishEnter( "fabric" );
   traffic( "Ethernet1", 1_Mbps );
   traffic( "Ethernet2", 1_Mbps );
   advance( 20_s );
   ASSERT_EQ( status( "fabric" ).intfsViolatingTrafficThresholds(), 2u );
   link( "Ethernet1", IntfOperStatus::down );
   advance( 0 );
   EXPECT_EQ( status( "fabric" ).intfsViolatingTrafficThresholds(), 1u );
   EXPECT_TRUE( status( "fabric" ).intfsViolatingTrafficThreshold( Lumo::IntfId( "Ethernet2" ) ) );
   exit( "fabric" );
   EXPECT_EQ( status( "fabric" ).intfsViolatingTrafficThresholds(), 0u );
   EXPECT_EQ( status( "fabric" ).totalIntfTrafficViolations(), 2u );  // they did happen
}

}  // namespace Test
