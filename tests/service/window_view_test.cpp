// What the API answers about windows, from their records.
#include <gmock/gmock.h>

#include "kel/Json.h"
#include "kel/Optional.h"
#include "views/WindowView.h"

namespace Service {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class WindowViewTest : public ::testing::Test {
 protected:
   Kel::Ptr<Evidence::Window> window( char const * unit, uint32_t generation, double requested ) {
      auto const window = windows_->windowIs( Kel::Name( unit + std::string( "#" ) + std::to_string( generation ) ) );
      window->unitIs( unit );
      window->generationIs( generation );
      window->requestedIs( requested );
      return window;
   }
   static Kel::Ptr<Evidence::WindowIntf> intf( Kel::Ptr<Evidence::Window> const & window, char const * name ) {
      return window->intfIs( Lumo::IntfId( name ) );
   }
   [[nodiscard]] WindowView view() const { return WindowView( windows_ ); }

   Kel::Ptr<Evidence::WindowDir> const windows_{ new Evidence::WindowDir( Kel::Name( "window" ) ) };
};

std::string json( auto const & answer ) { return Kel::toJson( Kel::value( answer ) ); }

TEST_F( WindowViewTest, whatHasNotHappenedIsNullAndNeverZero ) {
   intf( window( "fabric", 3, 100 ), "eth0" );
   EXPECT_EQ( json( windowAnswer( *windows_->window( Kel::Name( "fabric#3" ) ), 130 ) ),
              R"({"unit": "fabric", "generation": 3, "exitGeneration": null, "requestedBy": null, )"
              R"("exitRequestedBy": null, "wallClockOffset": null, "asOf": 130, "requested": 100, "entered": null, )"
              R"("exitRequested": null, "ended": null, "outcome": "underway", "stages": [], "interfaces": )"
              R"([{"interface": "eth0", "leftOut": false, "seen": false, "profile": null, "breaks": 0, "spikes": 0, )"
              R"("totalEvents": 0, "events": [], "verdicts": [], "rates": []}]})" );
}

TEST_F( WindowViewTest, saysAllThatTheRecordKeeps ) {
   auto const kept = window( "fabric", 3, 100 );
   kept->exitGenerationIs( 4 );
   kept->requestedByIs( "alice" );
   kept->exitRequestedByIs( "bob" );
   kept->wallClockOffsetIs( 1e9 );
   kept->enteredIs( 200 );
   kept->exitRequestedIs( 300 );
   kept->endedIs( 310 );
   kept->outcomeIs( Evidence::Outcome::rolledBack );
   kept->stageRunIs( 1, { .stage = "verify",
                          .op = Maintenance::Unit::MaintenanceOp::enter,
                          .began = 150,
                          .ended = 200,
                          .deadlinePassed = 180,
                          .result = Evidence::StageResult::timedOut,
                          .why = "not over after 30 s" } );
   auto const eth = intf( kept, "eth0" );
   eth->leftOutIs( true );
   eth->seenIs( true );
   eth->profileIs( { "uplink", 1e6, 5, 30, true } );
   eth->breaksIs( 2 );
   eth->spikesIs( 1 );
   eth->totalEventsIs( 7 );
   eth->eventIs( 1, { .time = 160, .kind = "break", .text = "the link went down" } );
   eth->verdictAtIs( 1, Evidence::Verdict::leftOut );
   eth->rateIs( { 100, 105, 1, 2, 3, 4, 5, 6 } );
   EXPECT_EQ( json( windowAnswer( *kept, 400 ) ),
              R"({"unit": "fabric", "generation": 3, "exitGeneration": 4, "requestedBy": "alice", )"
              R"("exitRequestedBy": "bob", "wallClockOffset": 1e+09, "asOf": 400, "requested": 100, "entered": 200, )"
              R"("exitRequested": 300, "ended": 310, "outcome": "rolled back", "stages": [{"number": 1, )"
              R"("stage": "verify", "operation": "enter", "began": 150, "ended": 200, "deadlinePassed": 180, )"
              R"("result": "timed out", "why": "not over after 30 s"}], )"
              R"("interfaces": [{"interface": "eth0", "leftOut": true, "seen": true, )"
              R"("profile": {"profile": "uplink", "thresholdBitsRate": 1e+06, "sampleIntervalSeconds": 5, )"
              R"("loadIntervalSeconds": 30, "shutdown": true}, "breaks": 2, "spikes": 1, "totalEvents": 7, )"
              R"("events": [{"time": 160, "kind": "break", "text": "the link went down"}], "verdicts": )"
              R"([{"stageNumber": 1, "verdict": "left out"}], "rates": [{"from": 100, "to": 105, "inLow": 1, )"
              R"("inMean": 2, "inHigh": 3, "outLow": 4, "outMean": 5, "outHigh": 6}]}]})" );
}

// The store gives entries back in an order of its own.
TEST_F( WindowViewTest, listsAreInOrderWhateverTheOrderInWhichEntriesCame ) {
   auto const kept = window( "fabric", 3, 100 );
   for( uint32_t const number : { 10u, 9u, 2u } ) {
      kept->stageRunIs( number, { .stage = std::to_string( number ), .began = 1.0 * number } );
      intf( kept, "eth10" )->eventIs( number, { .time = 1.0 * number } );
      intf( kept, "eth10" )->verdictAtIs( number, Evidence::Verdict::quiet );
   }
   intf( kept, "eth9" );
   WindowAnswer const answer = windowAnswer( *kept, 400 );
   std::vector<double> times;
   for( auto const & stage : answer.stages ) times.push_back( stage.began );
   ASSERT_EQ( answer.interfaces.size(), 2u );
   EXPECT_EQ( answer.interfaces[0].interface, Text( "eth9" ) );
   auto const & eth10 = answer.interfaces[1];
   for( auto const & event : eth10.events ) times.push_back( event.time );
   for( auto const & verdict : eth10.verdicts ) times.push_back( verdict.stageNumber );
   EXPECT_THAT( times, ElementsAre( 2, 9, 10, 2, 9, 10, 2, 9, 10 ) );
}

TEST_F( WindowViewTest, theListHasTheLatestRequestFirstWithSumsOverItsInterfaces ) {
   EXPECT_THAT( view().windows().windows, IsEmpty() );
   window( "a", 1, 100 );
   auto const latest = window( "a", 3, 300 );
   window( "b", 1, 200 );
   for( char const * name : { "eth10", "eth9", "eth0" } ) {
      auto const eth = intf( latest, name );
      eth->breaksIs( 2 );
      eth->spikesIs( 1 );
      eth->leftOutIs( name != std::string( "eth0" ) );
   }
   auto const lines = view().windows().windows;
   ASSERT_EQ( lines.size(), 3u );
   EXPECT_EQ( json( lines[0] ), R"({"unit": "a", "generation": 3, "requestedBy": null, "wallClockOffset": null, )"
                                R"("requested": 300, "entered": null, "exitRequested": null, "ended": null, )"
                                R"("outcome": "underway", "interfaces": 3, "without": ["eth9", "eth10"], )"
                                R"("breaks": 6, "spikes": 3})" );
   EXPECT_EQ( lines[1].unit, Text( "b" ) );
   EXPECT_EQ( lines[2].generation, 1u );
}

}  // namespace
}  // namespace Service
