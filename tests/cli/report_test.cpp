// A window as maintctl report prints it, and what is told from it when an entry ends otherwise than hoped.
#include "tables/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "Answers.h"

namespace Cli {
namespace {

using Service::WindowAnswer;
using Service::WindowInterfaceAnswer;
using Service::WindowStageAnswer;
using ::testing::HasSubstr;
using ::testing::Not;

WindowStageAnswer stage( uint32_t number, char const * name, char const * operation, double began, double ended,
                         char const * result ) {
   WindowStageAnswer answer;
   answer.number = number;
   answer.stage = name;
   answer.operation = operation;
   answer.began = began;
   answer.ended = ended;
   answer.result = result;
   return answer;
}

WindowInterfaceAnswer up1() {
   WindowInterfaceAnswer intf;
   intf.interface = "up1";
   intf.seen = true;
   intf.profile = Evidence::ProfileInForce{ "quick", 100e3, 1, 5, false };
   intf.breaks = 1;
   intf.totalEvents = 2;
   intf.events = { { 1004, "break", "out 3 Mbps" }, { 1003, "verdict", "quiet" } };
   intf.verdicts = { { 0, "loud" }, { 1, "quiet" }, { 2, "unwatched" } };
   intf.rates = { { 1000, 1001, 0, 0, 0, 0, 0, 0 }, { 1001, 1002, 0, 1e3, 2e3, 0, 3e6, 4e6 } };
   return intf;
}

// From 14:00:00 UTC on 1 March 2026, when the service's clock stood at 1000.
WindowAnswer window() {
   WindowAnswer answer;
   answer.unit = "fabric";
   answer.generation = 3;
   answer.requestedBy = "alice";
   answer.wallClockOffset = 1772373600 - 1000;
   answer.asOf = 1100;
   answer.requested = 1000;
   answer.entered = 1065.5;
   answer.outcome = "underway";
   answer.stages = { stage( 0, "ratemon", "enter", 1000, 1060, "done" ),
                     stage( 1, "verify", "enter", 1060, 1065.5, "done" ),
                     stage( 2, "ratemon", "exit", 1090, 1090, "done" ) };
   WindowInterfaceAnswer bare;
   bare.interface = "up2";
   bare.leftOut = true;
   answer.interfaces = { up1(), bare };
   return answer;
}

class ReportTest : public ::testing::Test {
 protected:
   ReportTest() {
      ::setenv( "TZ", "UTC", 1 );
      ::tzset();
   }
};

TEST_F( ReportTest, saysWhoWhenAndHowItWent ) {
   EXPECT_EQ( printed( printReport, window() ),
              "unit fabric, generation 3: under way\n"
              "  asked to enter  2026-03-01 14:00:00 by alice\n"
              "  in maintenance  2026-03-01 14:01:05\n"
              "\n"
              "STAGE    OF     BEGAN                TOOK  RESULT  DEADLINE PASSED  WHY\n"
              "ratemon  enter  2026-03-01 14:00:00  60 s  done    -                -\n"
              "verify   enter  2026-03-01 14:01:00  6 s   done    -                -\n"
              "ratemon  exit   2026-03-01 14:01:30  0 s   done    -                -\n"
              "\n"
              "INTERFACE  LEFT OUT  PROFILE  THRESHOLD         AFTER THE ENTRY  LAST RATES             BREAKS  SPIKES\n"
              "up1        -         quick    100 kbps for 5 s  quiet            in 1 kbps, out 3 Mbps  1       0\n"
              "up2        yes       -        -                 -                -                      0       0\n"
              "\n"
              "up1\n"
              "  TIME                 WHAT   DETAILS\n"
              "  2026-03-01 14:00:04  break  out 3 Mbps\n" );
}

TEST_F( ReportTest, saysWhatItDoesNotKnow ) {
   auto answer = window();
   answer.wallClockOffset.reset();
   answer.requestedBy.reset();
   answer.stages = { stage( 0, "ratemon", "enter", 1000, 0, "running" ) };
   answer.stages[0].ended.reset();
   answer.interfaces[0].totalEvents = 1200;
   std::string const text = printed( printReport, answer );
   EXPECT_THAT( text, HasSubstr( "asked to enter  1000 s\n" ) );
   EXPECT_THAT( text, HasSubstr( "ratemon  enter  1000 s  100 s so far  running" ) );
   EXPECT_THAT( text, HasSubstr( "2 of 1200 events are kept: the first and the last\n" ) );
   EXPECT_THAT( text, Not( HasSubstr( "asked to leave" ) ) );
}

TEST_F( ReportTest, anEntryPastADeadlineIsUnproven ) {
   auto answer = window();
   EXPECT_EQ( unprovenText( received( answer ) ), "" );
   // On hold: late, and proven in the end.
   answer.stages[1].deadlinePassed = 1061;
   EXPECT_EQ( unprovenText( received( answer ) ), "" );
   // The rate monitor was late, and all was proven at once all the same.
   answer.stages[0].result = "timed out";
   EXPECT_EQ( unprovenText( received( answer ) ), "" );
   answer.stages[1].result = "timed out";
   EXPECT_EQ( unprovenText( received( answer ) ), "stage ratemon: timed out; stage verify: timed out" );
   EXPECT_THAT( printed( printReport, answer ), HasSubstr( "  UNPROVEN: stage ratemon: timed out; stage verify" ) );
   // What the exit could not do says nothing about the entry.
   answer.stages = { stage( 2, "bgp", "exit", 1070, 1080, "failed" ) };
   EXPECT_EQ( unprovenText( received( answer ) ), "" );
}

TEST_F( ReportTest, aUnitThatWasTurnedBackHasAReason ) {
   auto answer = window();
   answer.stages[1].result = "timed out";
   answer.exitRequested = 1065.5;
   answer.exitRequestedBy = "maintd";
   EXPECT_EQ( turnedBackText( received( answer ), "enter" ), "stage verify: timed out" );
   // Gone past the one, and left in the other.
   answer.stages[0].result = "timed out";
   answer.stages[1].result = "given up";
   answer.exitRequestedBy = "bob";
   EXPECT_EQ( turnedBackText( received( answer ), "enter" ), "it was asked to leave by bob" );
   answer.stages.push_back( stage( 3, "bgp", "exit", 1070, 1080, "failed" ) );
   EXPECT_EQ( turnedBackText( received( answer ), "exit" ), "stage bgp: failed" );
   answer.stages.back().why = "exit status 3";
   EXPECT_EQ( turnedBackText( received( answer ), "exit" ), "stage bgp: failed: exit status 3" );
   EXPECT_THAT( printed( printReport, answer ), HasSubstr( "failed     -                exit status 3\n" ) );
   EXPECT_EQ( turnedBackText( received( WindowAnswer() ), "enter" ), "" );
   EXPECT_EQ( turnedBackText( received( WindowAnswer() ), "exit" ), "" );
}

// Numbers keep their value, and what was not known is not.
TEST_F( ReportTest, aWindowArrivesAsItWasSent ) {
   auto const sent = window();
   auto const arrived = kelValue( boost::json::value( received( sent ) ) );
   EXPECT_EQ( Kel::ValueTraits<WindowAnswer>::fromValue( arrived ), sent );
   EXPECT_EQ( kelValue( boost::json::parse( "[true, -3, 3, 0.5, 18446744073709551615, \"x\", null]" ) ),
              Kel::Value( Kel::Value::Content(
                 Kel::Value::List{ Kel::value( true ), Kel::value( int64_t{ -3 } ), Kel::value( uint64_t{ 3 } ),
                                   Kel::value( 0.5 ), Kel::value( UINT64_MAX ), Kel::value( "x" ), Kel::Value() } ) ) );
}

}  // namespace
}  // namespace Cli
