// What maintctl says of units and interfaces, given what maintd knows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Answers.h"
#include "tables/Changes.h"
#include "tables/Units.h"

namespace Cli {
namespace {

using Service::AccountAnswer;
using Service::LoudAnswer;
using Service::UnitAnswer;
using Service::UnitsAnswer;
using ::testing::HasSubstr;
using ::testing::Not;

AccountAnswer account( char const * name, char const * verdict, bool settled ) {
   AccountAnswer answer;
   answer.interface = name;
   answer.verdict = verdict;
   answer.since = 955;
   answer.settled = settled;
   answer.thresholdBitsRate = 100e3;
   answer.loadIntervalSeconds = 30;
   answer.breaks = 0;
   answer.spikes = 0;
   return answer;
}

AccountAnswer quiet( char const * name ) {
   auto answer = account( name, "quiet", true );
   answer.quietSince = 900;
   answer.inBitsRate = 0;
   answer.outBitsRate = 12e3;
   answer.stillNeededSeconds = 0;
   answer.why = "below 100 kbps for 97 s";
   return answer;
}

AccountAnswer loud( char const * name ) {
   auto answer = account( name, "loud", false );
   answer.since = 997;
   answer.inBitsRate = 1e3;
   answer.outBitsRate = 3e6;
   answer.lastLoud = LoudAnswer{ 997, "out", 3e6 };
   answer.breaks = 1;
   answer.spikes = 1;
   answer.why = "out 3 Mbps to fall below 100 kbps";
   return answer;
}

UnitAnswer unit( char const * state, std::vector<AccountAnswer> interfaces ) {
   UnitAnswer answer;
   answer.unit = "fabric";
   answer.state = state;
   answer.generation = 3;
   answer.since = 940;
   answer.requestedBy = "alice";
   answer.now = 1000;
   answer.interfaces = std::move( interfaces );
   return answer;
}

UnitAnswer readyUnit() {
   auto answer = unit( "inMaintenance", { quiet( "up1" ), quiet( "up2" ) } );
   answer.ready = true;
   answer.provenUntil = 997;
   return answer;
}

TEST( Readiness, isSaidInOneLine ) {
   EXPECT_EQ( readinessText( received( readyUnit() ) ), "ready, proven quiet up to 3 s ago" );

   auto silent = readyUnit();  // nothing in it that could be read
   silent.provenUntil.reset();
   EXPECT_EQ( readinessText( received( silent ) ), "ready" );

   auto const waiting = account( "up3", "waiting", false );
   EXPECT_EQ( readinessText( received( unit( "entering", { quiet( "up1" ), quiet( "up2" ), waiting } ) ) ),
              "not ready: 1 of 3 interfaces not settled" );
   EXPECT_EQ( readinessText( received( unit( "entering", { waiting } ) ) ), "not ready: 1 of 1 interface not settled" );

   auto disturbed = unit( "inMaintenance", { loud( "up1" ), quiet( "up2" ), loud( "up3" ) } );
   disturbed.disturbed = true;
   EXPECT_EQ( readinessText( received( disturbed ) ), "DISTURBED: traffic is back on up1, up3" );
   // No longer loud is not yet quiet.
   auto unheard = loud( "up1" );
   unheard.verdict = "waiting";
   disturbed.interfaces = { unheard, waiting };
   EXPECT_EQ( readinessText( received( disturbed ) ),
              "DISTURBED: traffic was back on up1, and it is not known whether it has gone" );

   for( char const * state : { "active", "leaving", "failed" } ) {
      EXPECT_EQ( readinessText( received( unit( state, { quiet( "up1" ) } ) ) ), "" ) << state;
   }
}

std::string status( UnitAnswer const & unit, bool all = false ) {
   return printed( [=]( std::ostream & out, Object const & answer ) { printStatus( out, answer, all ); }, unit );
}

TEST( Status, saysOfEachInterfaceWhatItIsAndWhatItWaitsForTheWorstFirst ) {
   auto quietSoon = quiet( "up2" );
   quietSoon.settled = false;
   quietSoon.stillNeededSeconds = 17.25;
   quietSoon.why = "below 100 kbps for 12 s, 18 s still needed";
   auto missing = account( "up10", "missing", false );
   missing.why = "there is no such link";
   missing.thresholdBitsRate.reset();
   auto slow = loud( "up3" );
   slow.pace = "slow";
   auto stuck = loud( "up4" );
   stuck.pace = "stuck";
   auto calm = quiet( "up5" );
   calm.spikes = 2;
   calm.lastLoud = LoudAnswer{ 700, "in", 4e6 };
   auto entering = unit( "entering", { calm, quietSoon, slow, loud( "up1" ), stuck, missing } );
   entering.stage = "verify";
   entering.without = { "up10", "up11" };
   EXPECT_EQ(
      status( entering ),
      "unit fabric: entering, generation 3, for 60 s, asked for by alice\n"
      "  not ready: 5 of 6 interfaces not settled\n"
      "  stage under way: verify\n"
      "  left out of the proof: up10, up11\n"
      "  INTERFACE  VERDICT  FOR   WHY\n"
      "  up10       missing  45 s  there is no such link\n"
      "  up4        loud     3 s   out 3 Mbps to fall below 100 kbps\n"
      "  up1        loud     3 s   out 3 Mbps to fall below 100 kbps\n"
      "  up3        loud     3 s   out 3 Mbps to fall below 100 kbps\n"
      "  up2        quiet    45 s  below 100 kbps for 12 s, 18 s still needed\n"
      "  up5        quiet    45 s  below 100 kbps for 97 s; traffic was back 2 times, last in 4 Mbps, 5 min ago\n" );
}

TEST( Status, ofManyInterfacesShowsTheWorstTenAndCountsTheRest ) {
   std::vector<AccountAnswer> many;
   for( int i = 0; i < 985; ++i ) many.push_back( quiet( ( "eth" + std::to_string( i ) ).c_str() ) );
   many.push_back( account( "eth1000", "waiting", false ) );
   for( int i = 985; i < 999; ++i ) many.push_back( account( ( "eth" + std::to_string( i ) ).c_str(), "held", true ) );
   std::string const text = status( unit( "entering", many ) );
   EXPECT_EQ( std::count( text.begin(), text.end(), '\n' ), 2 + 1 + 10 + 1 );
   EXPECT_THAT( text, HasSubstr( "WHY\n  eth1000    waiting  45 s  -\n  eth0       quiet " ) );
   EXPECT_THAT( text, HasSubstr( "\n  ... and 990 more: 976 proven quiet, 14 held; all with --all\n" ) );
   std::string const all = status( unit( "entering", many ), true );
   EXPECT_EQ( std::count( all.begin(), all.end(), '\n' ), 2 + 1 + 1000 );
   // Nor does a line have a thousand names.
   auto disturbed = unit( "inMaintenance", std::vector<AccountAnswer>( 1000, loud( "up1" ) ) );
   disturbed.disturbed = true;
   EXPECT_LT( readinessText( received( disturbed ) ).size(), 120u );
}

TEST( Status, namesTheInterfacesOfAUnitThatIsNotUnderProof ) {
   AccountAnswer bare[2];
   bare[0].interface = "up1";
   bare[1].interface = "up2";
   auto active = unit( "active", { bare[0], bare[1] } );
   active.requestedBy.reset();
   active.since.reset();
   EXPECT_EQ( status( active ), "unit fabric: active, generation 3\n  interfaces: up1, up2\n" );
   active.interfaces.clear();
   active.note = "nothing to prove: the unit has no interfaces";
   EXPECT_EQ(
      status( active ),
      "unit fabric: active, generation 3\n  nothing to prove: the unit has no interfaces\n  interfaces: none\n" );
}

TEST( Units, areOneLineEach ) {
   auto active = unit( "active", {} );
   active.unit = "rack";
   active.requestedBy.reset();
   active.since.reset();
   EXPECT_EQ( printed( printUnits, UnitsAnswer{ { readyUnit(), active } } ),
              "UNIT    STATE           FOR   BY     STAGE  READINESS\n"
              "fabric  in maintenance  60 s  alice  -      ready, proven quiet up to 3 s ago\n"
              "rack    active          -     -      -      -\n" );
   EXPECT_THAT( printed( printUnits, UnitsAnswer() ), HasSubstr( "READINESS" ) );
}

TEST( Interfaces, areShownAsTheBoxHasThem ) {
   Service::InterfaceAnswer intf;
   intf.interface = "up1";
   intf.operStatus = "up";
   intf.monitoring = "passiveMonitoring";
   intf.shutDown = true;
   intf.profile = "quick";
   intf.inBitsRate = 0;
   intf.totalSamples = 12;
   intf.lastSampleSecondsAgo = 2.25;
   intf.units = { "fabric", "rack" };
   EXPECT_EQ( printed( printInterfaces, Service::InterfacesAnswer{ { intf } } ),
              "INTERFACE  LINK      MONITORING  PROFILE  IN     OUT  LAST SAMPLE  UNITS\n"
              "up1        up, held  watched     quick    0 bps  -    2 s          fabric, rack\n" );
}

TEST( Explain, tellsAllThatIsKnownInEachUnit ) {
   AccountAnswer bare;
   bare.interface = "up1";
   auto other = unit( "active", { bare } );
   other.unit = "rack";
   std::string const text =
      printed( printExplained, UnitsAnswer{ { unit( "inMaintenance", { loud( "up1" ) } ), other } } );
   EXPECT_THAT( text, HasSubstr( "unit fabric: in maintenance, generation 3, for 60 s, asked for by alice\n"
                                 "  interface up1\n"
                                 "    verdict           loud\n"
                                 "    since             3 s ago\n"
                                 "    why               out 3 Mbps to fall below 100 kbps\n"
                                 "    settled           no\n"
                                 "    still needed      -\n"
                                 "    traffic is        -\n"
                                 "    quiet since       -\n"
                                 "    last reading in   1 kbps\n"
                                 "    last reading out  3 Mbps\n"
                                 "    threshold         100 kbps\n"
                                 "    load interval     30 s\n"
                                 "    last loud         out 3 Mbps, 3 s ago\n"
                                 "    runs broken       1\n"
                                 "    spikes            1\n"
                                 "unit rack: active, generation 3, for 60 s, asked for by alice\n"
                                 "  interface up1: nothing is to be proven of it now\n" ) );
   // Of one interface alone it cannot be told how many of the unit are quiet.
   EXPECT_THAT( text, Not( HasSubstr( "of 1 interface" ) ) );
}

TEST( Ready, saysSoOrEachReasonWhyNot ) {
   Service::ReadyAnswer answer{ "fabric", true, 990, false, 1000, { "up3: left out: left out on request" } };
   EXPECT_EQ( printed( printReady, answer ),
              "unit fabric is ready, proven quiet up to 10 s ago\n  up3: left out: left out on request\n" );
   answer = { "fabric", false, {}, false, 1000, { "up1: no reading yet", "up2: there is no such link" } };
   EXPECT_EQ( printed( printReady, answer ),
              "unit fabric is not ready\n  up1: no reading yet\n  up2: there is no such link\n" );
   answer.disturbed = true;
   EXPECT_THAT( printed( printReady, answer ), HasSubstr( "is not ready: DISTURBED, traffic is back\n" ) );
}

TEST( Changes, areToldOnceEachAndNumbersAreNone ) {
   auto entering = unit( "entering", { loud( "up1" ), quiet( "up2" ) } );
   entering.stage = "ratemon";
   Changes changes;
   using ::testing::ElementsAre;
   using ::testing::IsEmpty;
   auto const next = [&] { return changes.next( received( entering ) ); };
   EXPECT_THAT( next(), ElementsAre( "entering, stage ratemon, 1 of 2 settled",
                                     "up1: loud, out 3 Mbps to fall below 100 kbps" ) );
   entering.interfaces[0].outBitsRate = 4e6;
   entering.interfaces[0].why = "out 4 Mbps to fall below 100 kbps";
   entering.now = 1001;
   EXPECT_THAT( next(), IsEmpty() );
   entering.interfaces[0].pace = "slow";
   entering.interfaces[0].why = "falling";
   EXPECT_THAT( next(), ElementsAre( "up1: loud, falling (1 of 2 settled)" ) );
   entering.interfaces[0] = quiet( "up1" );
   entering.interfaces[0].settled = false;
   EXPECT_THAT( next(), ElementsAre( "up1: quiet, below 100 kbps for 97 s (1 of 2 settled)" ) );
   entering.interfaces[0].settled = true;
   entering.stage = "verify";
   EXPECT_THAT( next(),
                ElementsAre( "up1: proven quiet, below 100 kbps for 97 s", "entering, stage verify, 2 of 2 settled" ) );
   entering.state = "leaving";
   entering.stage.reset();
   EXPECT_THAT( next(), ElementsAre( "leaving" ) );
}

TEST( Changes, shareALineWhereManyChangeAlike ) {
   std::vector<AccountAnswer> many;
   for( int i = 0; i < 500; ++i ) many.push_back( loud( ( "up" + std::to_string( i ) ).c_str() ) );
   Changes changes;
   EXPECT_THAT(
      changes.next( received( unit( "entering", many ) ) ),
      ::testing::ElementsAre( "entering, 0 of 500 settled", "500 interfaces: loud: up0, up1, up2, up3 and 496 more" ) );
   for( int i = 0; i < 499; ++i ) many[static_cast<std::size_t>( i )].pace = "stuck";
   many[499] = quiet( "up499" );
   EXPECT_THAT( changes.next( received( unit( "entering", many ) ) ),
                ::testing::ElementsAre( "499 interfaces: loud and stuck: up0, up1, up2, up3 and 495 more",
                                        "up499: proven quiet, below 100 kbps for 97 s (1 of 500 settled)" ) );
}

}  // namespace
}  // namespace Cli
