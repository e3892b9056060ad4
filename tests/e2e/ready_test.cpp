// Whether a unit that is said to be quiet is, on real links with real packets: each case is a way in which traffic
// stayed on a link that had been found drained, or that nobody could measure.
//
// Where a case waits for the stage "verify", the rate monitor has just reported its own stage complete, and everything
// that is asked after that is about traffic which it no longer waits for.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "Box.h"

namespace Test {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

std::string const profile =
   "profiles:\n  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s }\ndefault-profile: quick\n";

std::string fabric( std::string const & interfaces ) {
   return profile + "groups:\n  g: { interfaces: [" + interfaces + "] }\nunits:\n  fabric: { groups: [g] }\n";
}

}  // namespace

class Ready : public Box {
 protected:
   [[nodiscard]] std::string verdict( std::string const & unit, std::string const & interface ) const {
      return text( account( unit, interface ), "verdict" );
   }
   [[nodiscard]] bool settled( std::string const & unit, std::string const & interface ) const {
      return account( unit, interface ).at( "settled" ).as_bool();
   }
   void enter( std::string const & unit ) const {
      auto const entered = maintctl( { "enter", unit } );
      ASSERT_EQ( entered.status, 0 ) << entered.err;
   }
   [[nodiscard]] bool becomesLoud( std::string const & unit, std::string const & interface ) const {
      return eventually( [&] { return verdict( unit, interface ) == "loud"; } );
   }
   [[nodiscard]] ::testing::AssertionResult comesToVerify( std::string const & unit ) const {
      if( eventually( [&] { return text( shownUnit( unit ), "stage" ) == "verify"; } ) )
         return ::testing::AssertionSuccess();
      return ::testing::AssertionFailure() << "unit " << unit << " is " << state( unit ) << ", not under proof";
   }
   [[nodiscard]] bool becomesReady( std::string const & unit ) const {
      return eventually( [&] { return maintctl( { "ready", unit } ).status == 0; } );
   }
   // On its way in, and whoever asks is told no and why.
   void expectHeldOut( std::string const & unit, std::string const & why ) const {
      EXPECT_EQ( state( unit ), "entering" );
      auto const asked = maintctl( { "ready", unit } );
      EXPECT_EQ( asked.status, 1 );
      EXPECT_THAT( asked.out, AllOf( HasSubstr( "unit " + unit + " is not ready" ), ContainsRegex( why ) ) );
   }
};

TEST_F( Ready, onlyWhenTrafficThatCameBackToADrainedLinkHasGoneAgain ) {
   link( "up1", 1 );
   link( "up2", 2 );
   startMaintd( fabric( "up1, up2" ) );
   pid_t const slow = send( "up2", 2, 1e6 );
   enter( "fabric" );
   ASSERT_TRUE( eventually( [&] { return text( shown( "up1" ), "monitoring" ) == "passiveMonitoring"; } ) );
   pid_t back = send( "up1", 1, 3e6 );
   ASSERT_TRUE( becomesLoud( "fabric", "up1" ) );
   stop( slow );
   ASSERT_TRUE( comesToVerify( "fabric" ) );
   ASSERT_TRUE( eventually( [&] { return settled( "fabric", "up2" ); } ) );
   expectHeldOut( "fabric", "up1: loud: out [0-9.]+ Mbps" );
   EXPECT_THAT( maintctl( { "ready", "fabric" } ).out, Not( HasSubstr( "up2" ) ) );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "1s" } ).status, 3 );
   stop( back );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 0 );

   back = send( "up2", 2, 2e6 );
   ASSERT_TRUE( eventually( [&] { return shownUnit( "fabric" ).at( "disturbed" ).as_bool(); } ) );
   auto const disturbed = maintctl( { "ready", "fabric" } );
   EXPECT_EQ( disturbed.status, 1 );
   EXPECT_THAT( disturbed.out, AllOf( HasSubstr( "DISTURBED" ), HasSubstr( "up2: loud" ) ) );
   EXPECT_THAT( maintctl( { "units" } ).out, HasSubstr( "DISTURBED: traffic is back on up2" ) );
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   stop( back );
   EXPECT_TRUE( becomesReady( "fabric" ) );
   EXPECT_FALSE( shownUnit( "fabric" ).at( "disturbed" ).as_bool() );
   // The first sample of the traffic has a part of it only.
   EXPECT_THAT( maintctl( { "report", "fabric" } ).out, AllOf( ContainsRegex( "break +traffic, out [0-9.]+ [kM]bps" ),
                                                               ContainsRegex( "spike +out [0-9.]+ [kM]bps" ) ) );
   EXPECT_THAT( contents( path( "maintd.log" ) ),
                ContainsRegex( "disturbed: traffic is back: up2(.|\n)*fabric: quiet again" ) );
}

TEST_F( Ready, notByAFlapADeletionOrARenameOfTheLastLoudLink ) {
   for( auto const & [name, number] : { std::pair( "up1", 1 ), std::pair( "up2", 2 ), std::pair( "up3", 3 ) } ) {
      link( name, number );
      static_cast<void>( send( name, number, 4e6 ) );
   }
   // What must not be ready in this test has a long way to go, and what is asked at a moment has the time for it.
   std::string const slower =
      "profiles:\n"
      "  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 5s }\n"
      "  patient: { threshold: 100kbps, sample-interval: 1s, load-interval: 600s }\n"
      "default-profile: quick\n"
      "groups:\n  g1: { interfaces: [up1] }\n  g2: { interfaces: [up2] }\n"
      "  g3: { interfaces: [up3], profile: patient }\nunits:\n"
      "  flapped: { groups: [g1] }\n  deleted: { groups: [g2] }\n  renamed: { groups: [g3] }\n";
   startMaintd( slower );
   for( char const * const unit : { "flapped", "deleted", "renamed" } ) enter( unit );
   ASSERT_TRUE( becomesLoud( "flapped", "up1" ) && becomesLoud( "deleted", "up2" ) && becomesLoud( "renamed", "up3" ) );

   ip( "link set farup1 down" );
   std::this_thread::sleep_for( std::chrono::milliseconds( 300 ) );
   ip( "link set farup1 up" );
   ASSERT_TRUE( comesToVerify( "flapped" ) );
   expectHeldOut( "flapped", "up1: (waiting|loud)" );
   EXPECT_TRUE( becomesLoud( "flapped", "up1" ) );
   expectHeldOut( "flapped", "up1: loud: out [0-9.]+ Mbps" );

   // A running link keeps its name on older kernels; going down takes the neighbour with it.
   auto const rename = []( std::string const & from, std::string const & to ) {
      ip( "link set " + from + " down\nlink set " + from + " name " + to + "\nlink set " + to +
          " up\nneighbour replace 10.9.3.2 lladdr 02:00:00:00:03:02 dev " + to );
   };
   rename( "up3", "other" );
   ASSERT_TRUE( eventually( [&] { return verdict( "renamed", "up3" ) == "gone"; } ) );
   expectHeldOut( "renamed", "up3: gone" );
   rename( "other", "up3" );
   EXPECT_TRUE( becomesLoud( "renamed", "up3" ) );
   expectHeldOut( "renamed", "up3: loud: out [0-9.]+ Mbps" );
   EXPECT_EQ( text( shownUnit( "renamed" ), "stage" ), "verify" );

   // What is gone for good carries nothing; but that has to last as long as quiet traffic has to.
   ip( "link delete up2" );
   ASSERT_TRUE( comesToVerify( "deleted" ) );
   expectHeldOut( "deleted", "up2: gone" );
   EXPECT_TRUE( eventually( [&] { return state( "deleted" ) == "inMaintenance"; } ) );
   double const gone = account( "deleted", "up2" ).at( "since" ).to_number<double>();
   EXPECT_GE( shownUnit( "deleted" ).at( "since" ).to_number<double>() - gone, 5.0 );
   EXPECT_EQ( state( "flapped" ), "entering" );
   EXPECT_EQ( state( "renamed" ), "entering" );
}

TEST_F( Ready, notByWhatAnotherUnitHasMeasuredBeforeTrafficCameBack ) {
   link( "up1", 1 );
   startMaintd( profile +
                "groups:\n  g: { interfaces: [up1] }\nunits:\n"
                "  first: { groups: [g] }\n  second: { groups: [g] }\n  third: { groups: [g] }\n" );
   ASSERT_EQ( maintctl( { "enter", "first", "--wait", "--timeout", "60s" } ).status, 0 );
   pid_t const back = send( "up1", 1, 2e6 );
   ASSERT_TRUE( becomesLoud( "first", "up1" ) );
   enter( "second" );
   ASSERT_TRUE( comesToVerify( "second" ) );
   expectHeldOut( "second", "up1: loud: out [0-9.]+ Mbps" );
   EXPECT_EQ( maintctl( { "enter", "second", "--wait", "--timeout", "2s" } ).status, 3 );
   stop( back );
   EXPECT_EQ( maintctl( { "enter", "second", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( maintctl( { "ready", "first" } ).status, 0 );

   // What is quiet now and was measured for another is taken over: nobody waits for the same proof twice.
   // A machine with other things to do takes its time as well, but not at each of several attempts.
   double took = 1e9;  // s
   for( int attempt = 0; attempt < 5 && took >= 2.0; ++attempt ) {
      ASSERT_EQ( maintctl( { "enter", "third", "--wait", "--timeout", "60s" } ).status, 0 );
      auto const window = boost::json::parse( maintctl( { "report", "third", "--json" } ).out );
      took = window.at( "entered" ).to_number<double>() - window.at( "requested" ).to_number<double>();
      ASSERT_EQ( maintctl( { "exit", "third", "--wait", "--timeout", "60s" } ).status, 0 );
   }
   EXPECT_LT( took, 2.0 );
}

TEST_F( Ready, notWhileTheCountersCannotBeRead ) {
   link( "up1", 1 );
   startMaintd( fabric( "up1" ), {}, { .unread = path( "unread" ) } );
   auto const samples = [&] { return shown( "up1" ).at( "totalSamples" ).to_number<int>(); };
   // Asks everything that can be asked, over more samples than the proof takes.
   auto const expectNothingKnown = [&] {
      int const before = samples();
      while( samples() < before + 2 ) {
         EXPECT_NE( verdict( "fabric", "up1" ), "quiet" );
         EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
         EXPECT_FALSE( shownUnit( "fabric" ).at( "disturbed" ).as_bool() );
         for( std::vector<std::string> const & view : { std::vector<std::string>{ "status" },
                                                        { "ready", "fabric" },
                                                        { "interfaces" },
                                                        { "units" },
                                                        { "explain", "up1" } } ) {
            EXPECT_THAT( maintctl( view ).out, Not( ContainsRegex( "(^|[^0-9])0 bps" ) ) );
         }
         EXPECT_TRUE( account( "fabric", "up1" ).at( "outBitsRate" ).is_null() );
      }
   };
   pid_t const sender = send( "up1", 1, 4e6 );
   enter( "fabric" );
   ASSERT_TRUE( becomesLoud( "fabric", "up1" ) );
   file( "unread", "" );
   // To the rate monitor, counters that stand still are links without traffic.
   ASSERT_TRUE( comesToVerify( "fabric" ) );
   ASSERT_TRUE( eventually( [&] { return verdict( "fabric", "up1" ) == "waiting"; } ) );
   expectHeldOut( "fabric", "up1: waiting: .*could not be read" );
   expectNothingKnown();
   EXPECT_EQ( state( "fabric" ), "entering" );
   std::filesystem::remove( path( "unread" ) );
   EXPECT_TRUE( becomesLoud( "fabric", "up1" ) );
   EXPECT_EQ( state( "fabric" ), "entering" );
   stop( sender );
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );

   // In maintenance too: proven quiet is no promise of being so for ever, and unknown is not disturbed.
   file( "unread", "" );
   ASSERT_TRUE( eventually( [&] { return maintctl( { "ready", "fabric" } ).status == 1; } ) );
   expectNothingKnown();
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   std::filesystem::remove( path( "unread" ) );
   EXPECT_TRUE( becomesReady( "fabric" ) );
}

TEST_F( Ready, notForANameThatNoLinkHas ) {
   link( "up1", 1 );
   auto const checked = run( { RATEMON_MAINTD_PATH, "--check", "--config", file( "c.yaml", fabric( "up1, upp2" ) ) } );
   EXPECT_EQ( checked.status, 0 );
   EXPECT_THAT( checked.err, HasSubstr( "warning: unit fabric: upp2: there is no such link" ) );
   EXPECT_THAT( checked.err, Not( HasSubstr( "fabric: up1" ) ) );
   startMaintd( fabric( "up1, upp2" ) );
   EXPECT_THAT( contents( path( "maintd.log" ) ),
                HasSubstr( "warning: config: unit fabric: upp2: there is no such link" ) );
   ASSERT_TRUE( eventually( [&] { return text( shown( "up1" ), "operStatus" ) == "up"; } ) );

   for( char const * const option : { "--wait", "--dry-run", "--json" } ) {
      auto const refused = maintctl( { "enter", "fabric", option } );
      EXPECT_EQ( refused.status, 4 ) << option;
      EXPECT_THAT( refused.err, AllOf( HasSubstr( "upp2: there is no such link" ), Not( HasSubstr( "up1" ) ) ) );
   }
   EXPECT_EQ( state( "fabric" ), "active" );
   EXPECT_EQ( shownUnit( "fabric" ).at( "generation" ).to_number<int>(), 0 );
   auto const other = maintctl( { "enter", "fabric", "--without", "upp2", "--without", "up3" } );
   EXPECT_EQ( other.status, 4 );
   EXPECT_THAT( other.err, HasSubstr( "up3: not an interface of unit fabric" ) );

   EXPECT_EQ( maintctl( { "enter", "fabric", "--without", "upp2", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( verdict( "fabric", "upp2" ), "left out" );
   auto const ready = maintctl( { "ready", "fabric" } );
   EXPECT_EQ( ready.status, 0 );
   EXPECT_THAT( ready.out, HasSubstr( "upp2: left out" ) );
   EXPECT_THAT( maintctl( { "report", "fabric" } ).out, ContainsRegex( "upp2 +yes .* left out" ) );

   // A link that has been there and is down is another thing: it is known, and carries nothing.
   ip( "link set farup1 down" );
   ASSERT_TRUE( eventually( [&] { return verdict( "fabric", "up1" ) == "down"; } ) );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
   EXPECT_TRUE( becomesReady( "fabric" ) );
   EXPECT_FALSE( account( "fabric", "up1" ).at( "outBitsRate" ).is_number() );
}

}  // namespace Test
