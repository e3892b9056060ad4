// The stage manager and what it shows an operator, with the plug-in behind it, on a virtual clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/ActivityLoop.h"
#include "plugin/Loader.h"
#include "plugin/PluginContext.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "units/UnitService.h"
#include "views/UnitView.h"

namespace Service {
namespace {

using Maintenance::Profile::ProfileType;
using ::testing::HasSubstr;
using Outcome = UnitService::Outcome;

constexpr char const * file = R"(
profiles:
  slow: { threshold: 100kbps, sample-interval: 10s, load-interval: 30s }
  fast: { threshold: 1Mbps, sample-interval: 1s, load-interval: 2s }
default-profile: slow
groups:
  a: { interfaces: [eth0, eth1] }
  b: { interfaces: [eth1], profile: fast }
  c: { interfaces: [eth8, eth9] }
units:
  north: { groups: [a] }
  south: { groups: [b] }
  ghost: { groups: [c] }
)";

class UnitsTest : public ::testing::Test {
 protected:
   UnitsTest() {
      for( char const * intf : { "eth0", "eth1" } ) link( intf, Interface::IntfOperStatus::up );
      link( "eth8", Interface::IntfOperStatus::down );
      auto & loader = Maintenance::DefaultPluginLoader();
      loader.load( RATEMON_PLUGIN_PATH );
      loop_.turn( [&] { loader.initPlugins( context_ ); } );
      advance( 0 );
   }
   ~UnitsTest() override { pluginDir_->entityDelAll(); }

   void link( char const * intf, Interface::IntfOperStatus status ) {
      auto const id = Lumo::IntfId( intf );
      counters_.rowIs( id );
      state_.intfStatus->intfStatusIs( id )->operStatusIs( status );
   }
   void advance( double seconds ) { loop_.runUntil( *clock_, clock_->now() + seconds ); }

   UnitService::Answer enter( char const * unit ) {
      UnitService::Answer answer{};
      loop_.turn( [&] { answer = units_.enter( unit ); } );
      return answer;
   }
   UnitService::Answer exit( char const * unit ) {
      UnitService::Answer answer{};
      loop_.turn( [&] { answer = units_.exit( unit ); } );
      return answer;
   }
   Maintenance::Unit::State state( char const * unit ) { return state_.unitStatus->status( unit )->state(); }
   std::string profileOf( char const * intf ) {
      return state_.intfToGroup->intfToGroup( Lumo::IntfId( intf ) )
         ->selectedProfile( ProfileType::interface )
         ->name.str();
   }
   std::string shown( char const * unit ) { return Kel::toJson( view_.unit( unit ) ); }

   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   Kel::Ptr<Dovra::EntityManager> database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter counters_{ state_.counterWriterStatus, "" };
   Kel::Ptr<KelQuill::EntityManager> quill_{ new KelQuill::EntityManager( counters_.table() ) };
   Config::Config const config_ = Config::parse( file, "test.yaml" );
   ConfigRecords records_{ state_, config_ };
   UnitService units_{ state_, records_ };
   UnitView view_{ state_, records_ };
   Kel::Ptr<Kel::Dir> pluginDir_{ new Kel::Dir( "plugins" ) };
   Maintenance::PluginContext context_{ pluginDir_, database_, quill_ };
};

using State = Maintenance::Unit::State;

TEST_F( UnitsTest, takesAUnitInAndOutAndCleansUpBehindIt ) {
   EXPECT_EQ( enter( "north" ).outcome, Outcome::started );
   EXPECT_EQ( state( "north" ), State::entering );
   advance( 29 );
   EXPECT_EQ( state( "north" ), State::entering );
   auto const again = enter( "north" );
   EXPECT_EQ( again.outcome, Outcome::already );
   EXPECT_EQ( again.generation, 1u );
   advance( 1 );
   EXPECT_EQ( state( "north" ), State::inMaintenance );
   EXPECT_EQ( enter( "north" ).outcome, Outcome::already );
   EXPECT_EQ( exit( "north" ).generation, 2u );
   advance( 0 );
   EXPECT_EQ( state( "north" ), State::active );
   EXPECT_EQ( exit( "north" ).outcome, Outcome::already );
   for( auto const * stage : { &state_.enter, &state_.exit } ) {
      EXPECT_EQ( stage->progress->progresss() + stage->completion->statuss() + stage->agentStatus->completes(), 0u );
   }
   EXPECT_EQ( state_.monIntfStatus->monIntfStatuss(), 0u );
}

TEST_F( UnitsTest, anExitEndsAnEntryThatIsStillWaiting ) {
   enter( "north" );
   advance( 15 );
   EXPECT_EQ( exit( "north" ).outcome, Outcome::started );
   EXPECT_EQ( enter( "north" ).outcome, Outcome::busy );  // its exit is answered in a later turn
   advance( 0 );
   EXPECT_EQ( state( "north" ), State::active );
   EXPECT_EQ( state_.enter.progress->progresss(), 0u );
}

TEST_F( UnitsTest, unknownUnitsAreNamedAsSuch ) {
   EXPECT_EQ( enter( "nowhere" ).outcome, Outcome::unknownUnit );
   EXPECT_EQ( exit( "nowhere" ).outcome, Outcome::unknownUnit );
   EXPECT_TRUE( view_.unit( "nowhere" ).isNull() );
   EXPECT_EQ( view_.unitNames(), "north, south, ghost" );
}

TEST_F( UnitsTest, profilesFollowTheUnitsThatAreInMaintenance ) {
   // eth1 is in both units: the first unit has no profile of its own for it, the second has.
   EXPECT_EQ( profileOf( "eth0" ), "#DEFAULTPROFILE" );
   EXPECT_EQ( profileOf( "eth1" ), "fast" );
   enter( "north" );
   EXPECT_EQ( profileOf( "eth1" ), "fast" );
   EXPECT_EQ( state_.monIntfStatus->monIntfStatus( Lumo::IntfId( "eth0" ) )->profileName(), "slow" );
   EXPECT_EQ( state_.monIntfStatus->monIntfStatus( Lumo::IntfId( "eth1" ) )->profileName(), "fast" );
}

TEST_F( UnitsTest, aUnitWithNothingToMonitorCompletesAndSaysWhy ) {
   enter( "ghost" );
   advance( 0 );
   EXPECT_EQ( state( "ghost" ), State::inMaintenance );
   EXPECT_THAT( shown( "ghost" ),
                HasSubstr( "nothing is monitored: eth8: the link is down; eth9: there is no such interface" ) );
   exit( "ghost" );
   advance( 0 );
   EXPECT_THAT( shown( "ghost" ), HasSubstr( "\"note\": null" ) );
}

TEST_F( UnitsTest, aLinkThatComesUpLaterIsTakenUpAtOnce ) {
   enter( "ghost" );
   advance( 0 );
   loop_.turn( [this] {
      link( "eth8", Interface::IntfOperStatus::up );
      EXPECT_THAT( shown( "ghost" ), HasSubstr( "\"waitingFor\": \"its monitoring to begin\"" ) );
      EXPECT_THAT( shown( "ghost" ), HasSubstr( "nothing is monitored: eth8: its monitoring is about to begin" ) );
   } );
   advance( 0 );
   EXPECT_THAT( shown( "ghost" ), HasSubstr( "\"monitoring\": \"passiveMonitoring\"" ) );
   EXPECT_THAT( shown( "ghost" ), HasSubstr( "\"note\": null" ) );
}

TEST_F( UnitsTest, theViewSaysWhatIsStillNeeded ) {
   enter( "north" );
   EXPECT_THAT( shown( "north" ), HasSubstr( "\"waitingFor\": \"its first sample\"" ) );
   advance( 20 );
   EXPECT_THAT( shown( "north" ), HasSubstr( "below 100 kbps for 20 s, 10 s still needed" ) );
   EXPECT_THAT( shown( "north" ), HasSubstr( "\"belowSeconds\": 20" ) );
   EXPECT_THAT( shown( "north" ), HasSubstr( "\"monitored\": 2, \"drained\": 1" ) );  // eth1 is quick
   counters_.readIs( Lumo::IntfId( "eth0" ), { 10'000'000, 1000 } );
   advance( 10 );
   EXPECT_THAT( shown( "north" ), HasSubstr( "in 8 Mbps to fall below 100 kbps" ) );
   EXPECT_THAT( shown( "north" ), HasSubstr( "\"neededSeconds\": 30" ) );
}

}  // namespace
}  // namespace Service
