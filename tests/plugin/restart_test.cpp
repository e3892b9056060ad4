// What a restarted agent makes of the records that it finds.
#include <gmock/gmock.h>

#include "DrainStory.h"
#include "Model.h"

namespace Test {

class Restart : public DrainStory {
 protected:
   // As a crash leaves it: the records stand as they did, nothing was taken back.
   void leftBehind( std::string const & intf, MonIntfState state ) {
      auto const record = state_.monIntfStatus->monIntfStatusIs( Lumo::IntfId( intf ), Kel::String8( "old" ), 900.0 );
      record->stateIs( state );
      record->numConsecutiveDrainedSamplesIs( 2 );
      record->totalSamplesIs( 7 );
   }
   void inFlight( Maintenance::StageState const & stage, std::string const & unitName, State state,
                  bool active = true ) {
      auto & record = status( unitName );
      record.genIdIs( 4 );
      record.maintEnterInstanceNameIs( instance( unitName, 4 ) );
      record.maintExitInstanceNameIs( instance( unitName, 4 ) );
      record.stateIs( state );
      stage.completion->statusIs( instance( unitName, 4 ) );
      stage.progress->progressIs( instance( unitName, 4 ) )->stageIs( "ratemon", active );
   }
};

TEST_F( Restart, sweepsWhatNobodyMonitorsAnyMore ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   stop();  // the error-disable cause is there from the first start on
   leftBehind( "Ethernet1", MonIntfState::passiveMonitoring );
   leftBehind( "Ethernet2", MonIntfState::thresholdMonitoring );
   Lumo::IntfId const one( "Ethernet1" ), foreign( "Ethernet3" );
   for( auto const intf : { one, Lumo::IntfId( "Ethernet2" ), foreign } ) cause().intfStatusIs( intf, 950 );
   state_.monIntfStatus->monIntfEnterMaintIs( one, true );
   state_.monIntfStatus->monIntfUnderMaintIs( one, true );
   state_.monIntfStatus->monIntfSpikeUnderMaintIs( one, true );
   status( "fabric" ).intfsViolatingTrafficThresholdIs( one, true );
   traceOn();
   start();
   EXPECT_EQ( state_.monIntfStatus->monIntfStatuss(), 0u );
   EXPECT_EQ( state_.monIntfStatus->monIntfEnterMaints() + state_.monIntfStatus->monIntfUnderMaints() +
                 state_.monIntfStatus->monIntfSpikeUnderMaints(),
              0u );
   EXPECT_EQ( status( "fabric" ).intfsViolatingTrafficThresholds(), 0u );
   EXPECT_FALSE( shutDown( "Ethernet1" ) || shutDown( "Ethernet2" ) );
   EXPECT_TRUE( cause().intfStatus( foreign ) );  // has no record, so it is not ours to bring back
   EXPECT_TRUE( traced( "4 handleInitialized: marked 2 entries as stale in MonIntfStatusDir." ) );
   EXPECT_TRUE( traced( "4 handleInitialized: deleted 2 stale entries from MonIntfStatusDir." ) );
}

TEST_F( Restart, keepsAUnitInMaintenanceUnderWatch ) {
   profile( "down", { .shutdown = true, .maxDelay = 600 } );
   unit( "fabric", { "Ethernet1", "Ethernet2" } );
   select( "Ethernet1", "down" );
   auto & record = status( "fabric" );
   record.genIdIs( 4 );
   record.maintEnterInstanceNameIs( instance( "fabric", 4 ) );
   record.stateIs( State::inMaintenance );
   leftBehind( "Ethernet1", MonIntfState::passiveMonitoring );
   monitored( "Ethernet1" )->spikeUnderMaintIs( true );
   start();
   EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::passiveMonitoring );
   EXPECT_TRUE( state_.monIntfStatus->monIntfSpikeUnderMaint( Lumo::IntfId( "Ethernet1" ) ) );
   EXPECT_TRUE( shutDown( "Ethernet1" ) );                                           // applied again
   EXPECT_EQ( monitored( "Ethernet2" )->state(), MonIntfState::passiveMonitoring );  // new, and already in maintenance
   EXPECT_EQ( counter( "numIntfMonInitialStatePassive" ), 2u );
   EXPECT_EQ( counter( "numNoNotifyNoStageInput" ), 1u );  // nobody waits for a completion
}

TEST_F( Restart, finishesAnExitAtOnce ) {
   unit( "fabric", { "Ethernet1" } );
   inFlight( state_.exit, "fabric", State::leaving );
   leftBehind( "Ethernet1", MonIntfState::passiveMonitoring );
   start();
   EXPECT_TRUE( state_.exit.agentStatus->complete( { "ratemon", instance( "fabric", 4 ) } ) );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
}

struct SkipCase {
   char const * what;
   Maintenance::Unit::State state;
   bool progress;
   bool active;
   uint32_t genId;
};

class RestartSkips : public Restart, public ::testing::WithParamInterface<SkipCase> {};

TEST_P( RestartSkips, whatIsNotUnderWay ) {
   SkipCase const & c = GetParam();
   unit( "fabric", { "Ethernet1" } );
   auto & stage = c.state == State::leaving ? state_.exit : state_.enter;
   inFlight( stage, "fabric", c.state, c.active );
   if( !c.progress ) stage.progress->progressDel( instance( "fabric", 4 ) );
   status( "fabric" ).genIdIs( c.genId );
   leftBehind( "Ethernet1", MonIntfState::thresholdMonitoring );
   start();
   EXPECT_FALSE( monitored( "Ethernet1" ) );
   EXPECT_EQ( stage.agentStatus->completes(), 0u );
   EXPECT_EQ( counter( "numMaintEnter" ) + counter( "numMaintExit" ), 0u );
}

INSTANTIATE_TEST_SUITE_P(
   Cases, RestartSkips,
   ::testing::Values( SkipCase{ "inMaintenanceOfAnOlderGeneration", Maintenance::Unit::State::inMaintenance, false,
                                true, 5 },
                      SkipCase{ "enteringWithoutProgress", Maintenance::Unit::State::entering, false, true, 4 },
                      SkipCase{ "enteringWithTheStageOver", Maintenance::Unit::State::entering, true, false, 4 },
                      SkipCase{ "enteringOfAnOlderGeneration", Maintenance::Unit::State::entering, true, true, 5 },
                      SkipCase{ "leavingWithoutProgress", Maintenance::Unit::State::leaving, false, true, 4 },
                      SkipCase{ "leavingWithTheStageOver", Maintenance::Unit::State::leaving, true, false, 4 },
                      SkipCase{ "failed", Maintenance::Unit::State::failed, true, true, 4 } ),
   []( auto const & tested ) { return tested.param.what; } );

TEST_F( Restart, aStoppedMonitorStaysStopped ) {
   unit( "fabric", { "Ethernet1" } );
   inFlight( state_.enter, "fabric", State::entering );
   leftBehind( "Ethernet1", MonIntfState::monitoringStopped );
   start();
   EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::monitoringStopped );
   advance( 60_s );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 7u );
}

TEST_F( Restart, marksOfInstancesThatAreGoneGoFirst ) {
   state_.enter.agentStatus->completeIs( { "ratemon", "gone#1" }, true );
   state_.enter.agentStatus->completeIs( { "ratemon", "known#1" }, true );
   state_.enter.completion->statusIs( "known#1" );
   start();
   EXPECT_FALSE( state_.enter.agentStatus->complete( { "ratemon", "gone#1" } ) );
   EXPECT_TRUE( state_.enter.agentStatus->complete( { "ratemon", "known#1" } ) );
}

// The exit instance of the unit's generation is under way already, so the report that the stop causes passes its
// checks.
TEST_F( Restart, anOrderlyStopReportsExitsAsCountedAndWritesNone ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   state_.exit.progress->progressIs( instance( "fabric", 1 ) )->stageIs( "ratemon", true );
   state_.exit.agentStatus->completeDelAll();  // the answer to an exit of a unit that is not monitored
   enter( "fabric" );
   ASSERT_TRUE( monitored( "Ethernet1" ) );
   auto const counters = machine( world_, { "counters" } );  // kept beyond the root
   auto const reports = [&] {
      return counters->kelTypeInfo().attribute( "numNotifyStageCompletion" )->print( *counters );
   };
   EXPECT_EQ( reports(), "1" );
   stop();
   EXPECT_EQ( reports(), "2" );
   EXPECT_EQ( state_.exit.agentStatus->completes(), 0u );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
   EXPECT_EQ( world_.loop().nextDue(), Kel::never );
}

}  // namespace Test
