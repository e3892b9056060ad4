// When is an interface drained: the rule at its boundaries, and what a drain monitor publishes on the way.
#include "DrainStory.h"

namespace Test {

class Drain : public DrainStory {};

TEST_F( Drain, aQuietIntervalDrainsAndCompletesTheUnit ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   traffic( "Ethernet1", 10_Mbps );
   enter( "fabric" );
   advance( 60_s );
   EXPECT_FALSE( enterComplete( "fabric" ) );
   EXPECT_NEAR( monitored( "Ethernet1" )->curRates().inBitsRate, 10e6, 1 );
   EXPECT_NEAR( monitored( "Ethernet1" )->curRates().outBitsRate, 10e6, 1 );
   EXPECT_EQ( monitored( "Ethernet1" )->numSamplesAboveThresholdPreMaint(), 6u );
   traffic( "Ethernet1", 0_bps );
   advance( 20_s );
   EXPECT_FALSE( enterComplete( "fabric" ) );
   EXPECT_EQ( monitored( "Ethernet1" )->numConsecutiveDrainedSamples(), 2u );
   advance( 10_s );
   EXPECT_TRUE( enterComplete( "fabric" ) );
   EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::passiveMonitoring );
   EXPECT_EQ( monitored( "Ethernet1" )->stateTime(), now() );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 9u );
}

// Whether an interface drains, and after how many seconds, under each profile and each steady traffic.
struct RuleCase {
   char const * what;
   ProfileSpec profile;
   unsigned long long inBps, outBps;
   double drainsAfter;  // s, 0 for never within an hour
};

class DrainRule : public DrainStory, public ::testing::WithParamInterface<RuleCase> {};

TEST_P( DrainRule, holds ) {
   RuleCase const & c = GetParam();
   profile( "p", c.profile );
   unit( "fabric", { "Ethernet1" } );
   select( "Ethernet1", "p" );
   start();
   traffic( "Ethernet1", c.inBps, c.outBps );
   enter( "fabric" );
   if( c.drainsAfter == 0 ) {
      advance( 3600_s );
      EXPECT_FALSE( enterComplete( "fabric" ) );
      return;
   }
   advance( c.drainsAfter - 1 );
   EXPECT_FALSE( enterComplete( "fabric" ) ) << "drained too early";
   advance( 1_s );
   EXPECT_TRUE( enterComplete( "fabric" ) );
}

INSTANTIATE_TEST_SUITE_P(
   Boundaries, DrainRule,
   ::testing::Values(
      RuleCase{ "both directions at the threshold", {}, 100_kbps, 100_kbps, 0 },
      RuleCase{ "in at the threshold", {}, 100_kbps, 0_bps, 0 },
      RuleCase{ "out at the threshold", {}, 0_bps, 100_kbps, 0 },
      RuleCase{ "a hair below the threshold", {}, 99999_bps, 99999_bps, 30 },
      RuleCase{ "a threshold of 0 is never met", { .thresholdKbps = 0 }, 0_bps, 0_bps, 0 },
      RuleCase{ "a fraction of a kilobit", { .thresholdKbps = 0.5 }, 480_bps, 480_bps, 30 },
      RuleCase{ "a load interval of 0: the first quiet sample", { .loadInterval = 0 }, 0_bps, 0_bps, 10 },
      RuleCase{ "a load interval of 0 without a quiet sample", { .loadInterval = 0 }, 100_kbps, 0_bps, 0 },
      RuleCase{ "a load interval that is no multiple rounds up", { .loadInterval = 31 }, 0_bps, 0_bps, 40 },
      RuleCase{ "less than 0 counts back from 2^32", { .sampleInterval = -1 }, 0_bps, 0_bps, 1 },
      // The wheel ticks once a second and is never early, so a sample every 1.1 s comes every 2 s; each counts for 1.1
      // s.
      RuleCase{ "100 x 1.1 s is 110 s", { .sampleInterval = 1.1, .loadInterval = 110 }, 0_bps, 0_bps, 200 },
      // So a sample every half second comes once a second.
      RuleCase{ "3 x 0.5 s is 1 s", { .sampleInterval = 0.5, .loadInterval = 2 }, 0_bps, 0_bps, 4 },
      RuleCase{ "2.5 s counts as 2", { .sampleInterval = 2.5, .loadInterval = 3 }, 0_bps, 0_bps, 6 } ),
   []( auto const & tested ) {
      std::string name = tested.param.what;
      for( char & c : name ) c = std::isalnum( static_cast<unsigned char>( c ) ) ? c : '_';
      return name;
   } );

TEST_F( Drain, onlyUnitsInMaintenanceCountViolations ) {
   unit( "fabric", { "Ethernet1" } );
   unit( "edge", { "Ethernet1", "Ethernet2" } );
   start();
   traffic( "Ethernet2", 1_Mbps );
   enter( "fabric" );
   enter( "edge" );
   advance( 30_s );
   finishEnter( "fabric" );
   traffic( "Ethernet1", 1_Mbps );
   advance( 20_s );
   EXPECT_EQ( status( "fabric" ).totalIntfTrafficViolations(), 1u );
   EXPECT_EQ( status( "edge" ).state(), State::entering );
   EXPECT_EQ( status( "edge" ).totalIntfTrafficViolations(), 0u );
   EXPECT_EQ( status( "edge" ).intfsViolatingTrafficThresholds(), 0u );
}

// --- Shutting down
// ------------------------------------------------------------------------------------------------------

class Shutdown : public DrainStory {
 protected:
   void quietShutdown( double maxDelay ) {
      profile( "down", { .shutdown = true, .maxDelay = maxDelay } );
      unit( "fabric", { "Ethernet1" } );
      select( "Ethernet1", "down" );
      start();
   }
};

TEST_F( Shutdown, withoutDelayItGoesDownAtOnceAndNobodyIsNotifiedOfADrain ) {
   quietShutdown( 0 );
   traffic( "Ethernet1", 10_Mbps );
   enter( "fabric" );
   EXPECT_TRUE( shutDown( "Ethernet1" ) );
   EXPECT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::passiveMonitoring );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 0u );
   EXPECT_TRUE( enterComplete( "fabric" ) );  // the unit monitor found it passive
}

TEST_F( Shutdown, theMaximumDelayEndsTheWaitAtTheFirstSampleAtOrAfterIt ) {
   quietShutdown( 25 );
   profile( "down30", { .shutdown = true, .maxDelay = 30 } );
   unit( "edge", { "Ethernet2" } );
   select( "Ethernet2", "down30" );
   traffic( "Ethernet1", 10_Mbps );
   traffic( "Ethernet2", 10_Mbps );
   enter( "fabric" );
   enter( "edge" );
   advance( 20_s );
   EXPECT_FALSE( shutDown( "Ethernet1" ) || shutDown( "Ethernet2" ) );
   advance( 10_s );
   EXPECT_TRUE( shutDown( "Ethernet1" ) && shutDown( "Ethernet2" ) );
   EXPECT_TRUE( enterComplete( "fabric" ) && enterComplete( "edge" ) );
}

}  // namespace Test
