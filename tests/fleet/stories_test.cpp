// What an operator sees of plans, on a virtual clock.
#include <gtest/gtest.h>

#include <algorithm>

#include "VirtualFleet.h"

namespace FleetTest {

namespace {

constexpr char const * pairs = R"(
boxes:
  s1a: { labels: { pair: s1, site: fra }, units: [ fabric ] }
  s1b: { labels: { pair: s1, site: fra }, units: [ fabric ] }
  s2a: { labels: { pair: s2, site: ams }, units: [ fabric ] }
  s2b: { labels: { pair: s2, site: ams }, units: [ fabric ] }
budgets:
  pair: { out: 1 }
heartbeat: 15s
)";

class FleetStory : public testing::Test {
 protected:
   FleetStory() { fleet.advance( 20 ); }
   ~FleetStory() override { EXPECT_EQ( fleet.broken, std::vector<std::string>() ); }

   static PlanRequest of( Selection const & select, std::string const & waves ) {
      return { .by = "ada", .select = select, .waves = waveSizes( waves ), .deadlineSeconds = 60, .staySeconds = 5 };
   }
   static UnitName fabric( std::string const & box ) { return { box, "fabric" }; }

   // What it says when it refuses; empty when it does not.
   std::string refusal( std::function<void( Dispatcher & )> const & what ) {
      try {
         fleet.ask( what );
         return "";
      } catch( Refused const & refused ) {
         return refused.what();
      }
   }
   [[nodiscard]] std::string stateOf( std::string const & plan ) const {
      Plan const & its = fleet.planOf( plan );
      return std::string( nameOf( its.state ) ) + ( its.why.empty() ? "" : ": " + its.why );
   }
   [[nodiscard]] std::string waits( std::string const & plan ) const {
      auto const all = fleet.owner()->waitsFor( fleet.planOf( plan ), fleet.now() );
      std::string text;
      for( std::string const & one : all ) text += ( text.empty() ? "" : "; " ) + one;
      return text;
   }
   void resume( std::string const & plan, std::vector<UnitName> const & without = {} ) {
      fleet.ask( [&]( Dispatcher & owner ) { owner.planResumed( plan, without, "ada", fleet.now() ); } );
   }

   static std::string seenAndLost( int number ) {
      return "/fabric has seen order " + std::to_string( number ) +
             ", and the newest in the books is 0: the books are older than the fleet, as a restored backup is";
   }

   VirtualFleet fleet{ pairs, 7 };
};

}  // namespace

TEST_F( FleetStory, trafficThatDoesNotLeaveStopsThePlanUntilSomebodyHasSeenToIt ) {
   fleet.trafficStays( "s1b" );
   std::string const plan = fleet.plan( of( { .labels = { { "site", "fra" } } }, "1" ) );
   fleet.advance( 60 );
   EXPECT_EQ( fleet.planOf( plan ).wave, 1u );
   fleet.advance( 60 );
   EXPECT_EQ( stateOf( plan ), "paused: s1b/fabric is not quiet after 60 s: eth0: out 3 Mbps" );
   // Nobody has seen to it: it has its time once more, and stops again.
   resume( plan );
   fleet.advance( 50 );
   EXPECT_EQ( waits( plan ), "s1b/fabric is draining: eth0: out 3 Mbps" );
   fleet.advance( 20 );
   EXPECT_EQ( fleet.planOf( plan ).state, PlanState::paused );
   fleet.trafficLeaves( "s1b" );
   resume( plan );
   fleet.advance( 60 );
   EXPECT_EQ( stateOf( plan ), "finished" );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1b" ) ), 1 );
}

TEST_F( FleetStory, aNeighbourThatIsOutForWhateverReasonKeepsTheOtherIn ) {
   fleet.boxIs( "s1b", false );
   fleet.enteredByHand( fabric( "s2b" ) );
   fleet.advance( 60 );
   auto const rooms = fleet.owner()->roomFor( { fabric( "s1a" ), fabric( "s2a" ) }, fleet.now() );
   ASSERT_EQ( rooms.size(), 2u );
   EXPECT_EQ( rooms[0].who, std::vector<UnitName>{ fabric( "s1b" ) } );
   EXPECT_EQ( rooms[0].wouldBeOut, 2u );
   EXPECT_FALSE( rooms[0].enough() );
   std::string const plan = fleet.plan( of( { .boxes = { "s1a", "s2a" } }, "2" ) );
   fleet.advance( 30 );
   EXPECT_EQ( waits( plan ),
              "s1a/fabric is waiting: pair: s1 has 1 of 2 out, at most 1 out: s1b/fabric (silent for 93 s); "
              "s2a/fabric is waiting: pair: s2 has 1 of 2 out, at most 1 out: s2b/fabric (in maintenance)" );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1a" ) ) + fleet.drainsOf( fabric( "s2a" ) ), 0 );
   fleet.boxIs( "s1b", true );
   fleet.exitedByHand( fabric( "s2b" ) );
   fleet.advance( 120 );
   EXPECT_EQ( stateOf( plan ), "finished" );
}

TEST_F( FleetStory, oneBrakeStopsEveryPlanOfASiteAndGoingOnIsAPersonsDecision ) {
   std::string const fra = fleet.plan( of( { .labels = { { "site", "fra" } } }, "1" ) );
   std::string const ams = fleet.plan( of( { .labels = { { "site", "ams" } } }, "1" ) );
   fleet.advance( 5 );
   EXPECT_EQ( refusal( [&]( Dispatcher & owner ) { owner.braked( "par", "bob", fleet.now() ); } ),
              "no box is of site \"par\"" );
   fleet.ask( [&]( Dispatcher & owner ) { owner.braked( "fra", "bob", fleet.now() ); } );
   fleet.advance( 200 );
   EXPECT_EQ( stateOf( fra ), "paused: the brake of site fra is on, by bob" );
   EXPECT_EQ( stateOf( ams ), "finished" );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1b" ) ), 0 );
   EXPECT_EQ( refusal( [&]( Dispatcher & owner ) { owner.planResumed( fra, {}, "ada", fleet.now() ); } ),
              "the brake of site fra is on, by bob" );
   EXPECT_EQ( refusal( [&]( Dispatcher & owner ) {
                 static_cast<void>( owner.planMade( of( { .boxes = { "s1b" } }, "1" ), fleet.now() ) );
              } ),
              "the brake of site fra is on, by bob" );
   fleet.ask( [&]( Dispatcher & owner ) { owner.braked( "", "eve", fleet.now() ); } );
   EXPECT_EQ( waits( fra ), "the brake of site fra is on, by bob; the brake of all sites is on, by eve" );
   for( char const * const site : { "", "fra" } ) {
      fleet.ask( [&]( Dispatcher & owner ) { owner.unbraked( site, "bob", fleet.now() ); } );
   }
   fleet.advance( 60 );
   EXPECT_EQ( stateOf( fra ), "paused: the brake of site fra was on, and is released" );
   EXPECT_EQ( waits( fra ), "the brake of site fra was on, and is released" );
   resume( fra );
   fleet.advance( 200 );
   EXPECT_EQ( stateOf( fra ), "finished" );
}

TEST_F( FleetStory, booksOlderThanTheFleetOrderNothingUntilSomebodyAcceptsThem ) {
   Memory::Rows const backup = fleet.ownersMemory().rows();
   PlanRequest drain = of( { .boxes = { "s1a", "s2a" } }, "2" );
   drain.staySeconds.reset();
   static_cast<void>( fleet.plan( drain ) );
   fleet.advance( 60 );
   EXPECT_EQ( fleet.stateOf( fabric( "s1a" ) ), UnitState::inMaintenance );
   fleet.exitedByHand( fabric( "s2a" ) );
   fleet.kill();
   fleet.ownersMemory().restored( backup );
   fleet.advance( 60 );
   std::string const doubt = fleet.owner()->doubt();
   EXPECT_EQ( doubt.substr( doubt.find( "/" ) ), doubt.starts_with( "s1a" ) ? seenAndLost( 1 ) : seenAndLost( 2 ) );
   EXPECT_NE( refusal( [&]( Dispatcher & owner ) { static_cast<void>( owner.planMade( drain, fleet.now() ) ); } ), "" );
   fleet.ask( [&]( Dispatcher & owner ) { owner.doubtAccepted( "ada", fleet.now() ); } );
   fleet.advance( 60 );
   // What is in service is in again, and what the lost plan has taken out stays out until it is ordered back.
   EXPECT_FALSE( fleet.owner()->standing( fabric( "s2a" ), fleet.now() ).out );
   EXPECT_EQ( fleet.stateOf( fabric( "s1a" ) ), UnitState::inMaintenance );
   EXPECT_GT( fleet.owner()->books().lastNumber(), 3u );
   fleet.ask( [&]( Dispatcher & owner ) { owner.returned( { fabric( "s1a" ) }, "ada", fleet.now() ); } );
   fleet.advance( 60 );
   EXPECT_FALSE( fleet.owner()->standing( fabric( "s1a" ), fleet.now() ).out );
}

TEST_F( FleetStory, aBoxThatIsCutOffEndsWhatItBeganAndBeginsNothing ) {
   fleet.trafficStays( "s1a" );
   PlanRequest request = of( { .boxes = { "s1a", "s2a" } }, "2" );
   request.atDeadline = AtDeadline::giveBack;
   std::string const plan = fleet.plan( request );
   fleet.advance( 3 );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1a" ) ), 1 );
   fleet.brokerIs( false );
   fleet.advance( 300 );
   // Its deadline is its own affair.
   EXPECT_EQ( fleet.stateOf( fabric( "s1a" ) ), UnitState::active );
   EXPECT_EQ( fleet.stateOf( fabric( "s2a" ) ), UnitState::inMaintenance );
   EXPECT_EQ( fleet.planOf( plan ).state, PlanState::running );
   fleet.brokerIs( true );
   fleet.advance( 120 );
   EXPECT_EQ( stateOf( plan ),
              "paused: s1a/fabric was not quiet by its deadline, and went back to service: eth0: out 3 Mbps" );
   resume( plan, { fabric( "s1a" ) } );
   fleet.advance( 120 );
   EXPECT_EQ( stateOf( plan ), "finished" );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1a" ) ), 1 );
}

TEST_F( FleetStory, anOrderThatComesTooLateIsNotCarriedOutAndItsSlotIsGivenBack ) {
   fleet.trouble.lost = 1;
   std::string const plan = fleet.plan( of( { .boxes = { "s1a" } }, "1" ) );
   fleet.advance( 200 );
   EXPECT_NE( fleet.planOf( plan ).state, PlanState::finished );
   EXPECT_TRUE( fleet.owner()->books().slot( fabric( "s1a" ) )->open );
   fleet.trouble.lost = 0;
   fleet.advance( 120 );
   EXPECT_EQ( fleet.drainsOf( fabric( "s1a" ) ), 0 );
   EXPECT_EQ( stateOf( plan ).substr( 0, 6 ), "paused" ) << stateOf( plan );
   resume( plan );
   fleet.advance( 120 );
   EXPECT_EQ( stateOf( plan ), "finished" ) << waits( plan );
}

TEST_F( FleetStory, aRefusedResumeOrdersNothing ) {
   fleet.trouble.lost = 1;
   std::string const plan = fleet.plan( of( { .boxes = { "s1a", "s2a" } }, "2" ) );
   fleet.advance( 200 );
   ASSERT_EQ( fleet.planOf( plan ).state, PlanState::paused );
   uint64_t const number = fleet.owner()->books().lastNumber();
   fleet.ask( [&]( Dispatcher & owner ) { owner.braked( "ams", "bob", fleet.now() ); } );
   EXPECT_EQ( refusal( [&]( Dispatcher & owner ) { owner.planResumed( plan, {}, "ada", fleet.now() ); } ),
              "the brake of site ams is on, by bob" );
   fleet.advance( 5 );
   EXPECT_EQ( fleet.owner()->books().lastNumber(), number );
}

TEST_F( FleetStory, plansThatAreOverAreForgottenOneDayAndThoseUnderWayAreNot ) {
   PlanRequest drain = of( { .boxes = { "s2a" } }, "1" );
   drain.staySeconds.reset();
   std::string const stays = fleet.plan( drain );
   std::string last;
   for( int i = 0; i < 110; ++i ) {
      fleet.advance( 0.5 );
      last = fleet.plan( of( { .boxes = { "s1a" } }, "1" ) );
      fleet.ask( [&]( Dispatcher & owner ) { owner.planCancelled( last, "ada", fleet.now() ); } );
   }
   fleet.kill();
   fleet.advance( 30 );
   EXPECT_EQ( fleet.owner()->books().plans().size(), 102u );
   EXPECT_TRUE( fleet.owner()->books().plans().contains( last ) );
   EXPECT_FALSE( fleet.planOf( stays ).over() );
}

// What a box says of a drain that it was ordered to begin, where nobody else says anything.
TEST( FleetSlots, areFreedByProofThatNothingOfTheOrderIsToComeAndByNothingLess ) {
   struct Said {
      Outcome outcome;
      bool frees;
      UnitState state = UnitState::active;
      std::string trouble = "";
      uint64_t acknowledged = 1;
   };
   UnitName const unit{ "s1a", "fabric" };
   for( Said const & said : { Said{ Outcome::expired, true },
                              { Outcome::refused, true },
                              { Outcome::gaveBack, true },
                              { Outcome::undone, true },
                              { Outcome::none, false },
                              { Outcome::begun, false },
                              { Outcome::carried, false },
                              { Outcome::undone, false, UnitState::leaving },
                              { Outcome::expired, false, UnitState::active, "maintd does not answer" },
                              { Outcome::expired, false, UnitState::active, "", 0 } } ) {
      SCOPED_TRACE( std::string( nameOf( said.outcome ) ) + " " + std::string( nameOf( said.state ) ) + said.trouble );
      VirtualFleet fleet( pairs, 7 );
      fleet.advance( 20 );
      fleet.trouble.lost = 1;
      static_cast<void>( fleet.plan( { .by = "ada", .select = { .boxes = { "s1a" } } } ) );
      fleet.advance( 3 );
      ASSERT_EQ( fleet.owner()->books().slot( unit )->order.number, 1u );
      UnitStatus const status{
         .state = said.state, .acknowledged = said.acknowledged, .outcome = said.outcome, .unsettled = {} };
      ASSERT_TRUE( fleet.owner()->statusIs( { .box = "s1a",
                                              .life = fleet.owner()->heard( "s1a" )->status.life + 1,
                                              .time = fleet.now(),
                                              .heartbeatSeconds = 15,
                                              .trouble = said.trouble,
                                              .units = { { "fabric", status } } },
                                            fleet.now() ) );
      fleet.advance( 1 );
      EXPECT_EQ( fleet.owner()->books().slot( unit )->open, !said.frees );
      EXPECT_EQ( fleet.owner()->standing( unit, fleet.now() ).out, !said.frees );
   }
}

// Each of its writes in turn, once before the disk has it and once after.
TEST( FleetOwner, goesOnWithoutASecondActionWheneverItDies ) {
   int deaths = 0;
   for( int write = 0; write < 16; ++write ) {
      for( bool const before : { true, false } ) {
         SCOPED_TRACE( "write " + std::to_string( write ) + ( before ? " before" : " after" ) );
         VirtualFleet fleet( pairs, 7 );
         fleet.advance( 20 );
         fleet.ownersMemory().deathIs( write, before );
         PlanRequest const request{ .by = "ada",
                                    .select = { .labels = { { "site", "fra" } } },
                                    .waves = waveSizes( "1" ),
                                    .soakSeconds = 3,
                                    .deadlineSeconds = 60,
                                    .staySeconds = 5 };
         // Whoever asked and got no answer asks again when there is no plan.
         for( int tries = 0; tries < 2; ++tries ) {
            if( fleet.owner() && fleet.owner()->books().plans().empty() ) static_cast<void>( fleet.plan( request ) );
            fleet.advance( 60 );
         }
         fleet.advance( 200 );
         ASSERT_TRUE( fleet.owner() );
         ASSERT_EQ( fleet.owner()->books().plans().size(), 1u );
         EXPECT_EQ( fleet.owner()->books().plans().begin()->second.state, PlanState::finished );
         for( char const * box : { "s1a", "s1b" } ) EXPECT_EQ( fleet.drainsOf( { box, "fabric" } ), 1 ) << box;
         EXPECT_EQ( fleet.broken, std::vector<std::string>() );
         deaths += fleet.ownersMemory().died();
      }
   }
   EXPECT_GT( deaths, 20 );
}

TEST( Waves, takeNoMoreOfAGroupThanMayBeOutAndSayWhomTheyPutOff ) {
   Inventory const inventory = readInventory( pairs, "fleet.yaml" );
   auto const units = selected( inventory, {} );
   Layout const layout = layoutOf( inventory, units, waveSizes( "1, 100%" ) );
   std::vector<std::string> waves;
   for( auto const & wave : layout.waves ) {
      std::string & text = waves.emplace_back();
      for( UnitName const & unit : wave ) text += unit.box + " ";
   }
   EXPECT_EQ( waves, ( std::vector<std::string>{ "s1a ", "s1b s2a ", "s2b " } ) );
   EXPECT_EQ( layout.reasons,
              std::vector<std::string>{ "s2b/fabric is put off to a later wave than 2: pair: s2 has at most 1 out" } );
   EXPECT_THROW( static_cast<void>( selected( inventory, { .boxes = { "s9" } } ) ), Refused );
   for( char const * bad : { "", "0", "1.5", "101%", "1,,2", "many" } ) {
      EXPECT_THROW( static_cast<void>( waveSizes( bad ) ), std::invalid_argument ) << bad;
   }
}

}  // namespace FleetTest
