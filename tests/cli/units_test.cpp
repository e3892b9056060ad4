// What maintctl says of units and interfaces, given what maintd knows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Answers.h"
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

TEST( Status, saysOfEachInterfaceWhatItIsAndWhatItWaitsFor ) {
   auto quietSoon = quiet( "up2" );
   quietSoon.settled = false;
   quietSoon.stillNeededSeconds = 17.25;
   quietSoon.why = "below 100 kbps for 12 s, 18 s still needed";
   auto missing = account( "up10", "missing", false );
   missing.why = "there is no such link";
   missing.thresholdBitsRate.reset();
   auto entering = unit( "entering", { loud( "up1" ), quietSoon, missing } );
   entering.stage = "verify";
   entering.without = { "up10", "up11" };
   EXPECT_EQ( printed( printStatus, entering ),
              "unit fabric: entering, generation 3, for 60 s, asked for by alice\n"
              "  not ready: 3 of 3 interfaces not settled\n"
              "  stage under way: verify\n"
              "  left out of the proof: up10, up11\n"
              "  INTERFACE  VERDICT  SINCE     IN      OUT      THRESHOLD  STILL NEEDED  LAST LOUD            WHY\n"
              "  up1        loud     3 s ago   1 kbps  3 Mbps   100 kbps   -             out 3 Mbps, 3 s ago  "
              "out 3 Mbps to fall below 100 kbps\n"
              "  up2        quiet    45 s ago  0 bps   12 kbps  100 kbps   18 s          -                    "
              "below 100 kbps for 12 s, 18 s still needed\n"
              "  up10       missing  45 s ago  -       -        -          -             -                    "
              "there is no such link\n" );
}

TEST( Status, namesTheInterfacesOfAUnitThatIsNotUnderProof ) {
   AccountAnswer bare[2];
   bare[0].interface = "up1";
   bare[1].interface = "up2";
   auto active = unit( "active", { bare[0], bare[1] } );
   active.requestedBy.reset();
   active.since.reset();
   EXPECT_EQ( printed( printStatus, active ), "unit fabric: active, generation 3\n  interfaces: up1, up2\n" );
   active.interfaces.clear();
   active.note = "nothing to prove: the unit has no interfaces";
   EXPECT_EQ(
      printed( printStatus, active ),
      "unit fabric: active, generation 3\n  nothing to prove: the unit has no interfaces\n  interfaces: none\n" );
}

TEST( Units, areOneLineEach ) {
   auto active = unit( "active", {} );
   active.unit = "rack";
   active.requestedBy.reset();
   active.since.reset();
   EXPECT_EQ( printed( printUnits, UnitsAnswer{ { readyUnit(), active } } ),
              "UNIT    STATE          SINCE     GENERATION  BY     STAGE  READINESS                          NOTE\n"
              "fabric  inMaintenance  60 s ago  3           alice  -      ready, proven quiet up to 3 s ago  -\n"
              "rack    active         -         3           -      -      -                                  -\n" );
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
              "INTERFACE  LINK  MONITORING         SHUT DOWN  PROFILE  IN     OUT  THRESHOLD  SAMPLES  LAST SAMPLE  "
              "UNITS\n"
              "up1        up    passiveMonitoring  yes        quick    0 bps  -    -          12       2 s          "
              "fabric, rack\n" );
}

TEST( Explain, tellsAllThatIsKnownInEachUnit ) {
   AccountAnswer bare;
   bare.interface = "up1";
   auto other = unit( "active", { bare } );
   other.unit = "rack";
   std::string const text =
      printed( printExplained, UnitsAnswer{ { unit( "inMaintenance", { loud( "up1" ) } ), other } } );
   EXPECT_THAT( text, HasSubstr( "unit fabric: inMaintenance, generation 3, for 60 s, asked for by alice\n"
                                 "  interface up1\n"
                                 "    verdict           loud\n"
                                 "    since             3 s ago\n"
                                 "    why               out 3 Mbps to fall below 100 kbps\n"
                                 "    settled           false\n"
                                 "    still needed      -\n"
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

TEST( Progress, standsStillWhileOnlyNumbersMove ) {
   auto entering = unit( "entering", { loud( "up1" ), quiet( "up2" ) } );
   entering.stage = "ratemon";
   auto const first = progress( received( entering ) );
   EXPECT_EQ( first.told, "entering, stage ratemon, 1 of 2 settled; up1: loud, out 3 Mbps to fall below 100 kbps" );
   entering.interfaces[0].outBitsRate = 4e6;
   entering.interfaces[0].why = "out 4 Mbps to fall below 100 kbps";
   entering.now = 1001;
   EXPECT_EQ( progress( received( entering ) ).stands, first.stands );

   auto const differs = [&]( char const * what, auto const & change ) {
      auto changed = entering;
      change( changed );
      EXPECT_NE( progress( received( changed ) ).stands, first.stands ) << what;
   };
   differs( "verdict", []( auto & u ) { u.interfaces[0].verdict = "quiet"; } );
   differs( "settled", []( auto & u ) { u.interfaces[1].settled = false; } );
   differs( "stage", []( auto & u ) { u.stage = "verify"; } );
   differs( "state", []( auto & u ) { u.state = "leaving"; } );

   entering.state = "leaving";
   EXPECT_EQ( progress( received( entering ) ).told, "leaving, stage ratemon" );
}

}  // namespace
}  // namespace Cli
