// What people read of the owner's answers, made of real ones.
#include <gmock/gmock.h>

#include <sstream>

#include "Desk.h"
#include "cli/Tables.h"

namespace FleetTest {

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char const * tableFleet = R"(
boxes:
  s1a: { labels: { pair: s1 }, units: [ fabric ] }
  s1b: { labels: { pair: s1 }, units: [ fabric ] }
  s2a: { labels: { pair: s2 }, units: [ fabric ] }
budgets: { pair: { out: 1 } }
heartbeat: 15s
)";

class FleetTables : public ::testing::Test {
 protected:
   FleetTables() {
      desk.says( "s1a" );
      desk.says( "s1b" );
      desk.advance( 5 );
   }
   // The answer, which must have the shape that the program asks for.
   boost::json::object answer( std::string const & target, Cli::Shape const & shape, char const * method = "GET" ) {
      auto const given = method == std::string( "GET" ) ? desk.get( target ) : desk.post( target );
      EXPECT_EQ( given.status, 200u ) << given.text;
      EXPECT_EQ( Cli::shapeFault( given.body, shape ), "" ) << target;
      return given.body.as_object();
   }
   template<class Print>
   static std::string text( Print const & print ) {
      std::ostringstream out;
      print( out );
      return out.str();
   }
   std::string status() {
      auto const boxes = answer( "/v1/boxes", boxesShape );
      return text( [&]( auto & out ) { printFleet( out, answer( "/v1/fleet", fleetShape ), &boxes ); } );
   }

   Desk desk{ tableFleet };
};

}  // namespace

TEST_F( FleetTables, statusSaysFirstWhatIsWaitedFor ) {
   EXPECT_THAT( status(),
                AllOf( StartsWith( "waits for nothing\n\n3 units of 3 boxes: 2 in service, 1 out; 1 silent\n" ),
                       HasSubstr( "pair: s2  at most 1 out  1 of 1  s2a/fabric (not heard of yet)\n" ),
                       HasSubstr( "boxes that are silent\n  BOX  HEARD\n  s2a  never\n" ), Not( HasSubstr( "plans" ) ),
                       Not( HasSubstr( "pair: s1" ) ) ) );
   std::string const id = desk.post( "/v1/plans?label=pair:s1&stay=0s" ).told( "/plan" );
   desk.obeys( "s1a", UnitState::entering );
   desk.says( "s1a", UnitState::entering, "Ethernet1 has 3 Mbps" );
   desk.advance( 5 );
   EXPECT_THAT( status(),
                AllOf( StartsWith( "waits for\n  " + id + ": s1a/fabric is draining: Ethernet1 has 3 Mbps\n" ),
                       HasSubstr( id + "  running  1 of 2  0 of 2  eve" ),
                       HasSubstr( "pair: s1  at most 1 out  1 of 2  s1a/fabric (draining by " + id + ")" ) ) );
   desk.post( "/v1/brake" );
   desk.brokerRefuses( "the broker refuses: Permissions Violation" );
   EXPECT_THAT( status(), StartsWith( "waits for\n  the broker refuses: Permissions Violation\n" ) );
   desk.brokerIs( false );
   desk.advance( 1 );
   EXPECT_THAT( status(), AllOf( StartsWith( "waits for\n  the broker: nobody answers\n  " + id +
                                             " for a person to go on: the brake of all sites is on, by eve\n" ),
                                 HasSubstr( "brakes that are on" ) ) );
}

TEST_F( FleetTables, nothingThatHasGoneWrongAndNobodyThatIsSilentLooksAsIfItWereFine ) {
   desk.says( "s1a", UnitState::entering );
   desk.says( "s2a", UnitState::failed, "hook 2 of 3 ended with 1" );
   desk.advance( 5 );
   EXPECT_THAT( status(), HasSubstr( "units that are out\n  UNIT        STATE     WHY\n"
                                     "  s2a/fabric  failed    failed: hook 2 of 3 ended with 1\n"
                                     "  s1a/fabric  entering  draining\n\n" ) );
   EXPECT_THAT( desk.get( "/metrics" ).text, HasSubstr( "maintfleet_units_disturbed 0\n" ) );
   Status loud{ .box = "s2a", .life = 1, .sequence = 1000 };
   loud.units["fabric"] = { .state = UnitState::inMaintenance, .disturbed = true };
   desk.arrives( "status.s2a", textOf( loud ) );
   desk.owner().turn();
   EXPECT_THAT( status(), HasSubstr( "\n  s2a/fabric  in maintenance  in maintenance, and traffic is back\n  s1a" ) );
   EXPECT_THAT( desk.get( "/metrics" ).text, HasSubstr( "maintfleet_units_disturbed 1\n" ) );
   auto const box = [&] { return answer( "/v1/boxes/s1b", boxShape ); };
   desk.says( "s1b", UnitState::inMaintenance );
   desk.advance( 5 );
   EXPECT_THAT( text( [&]( auto & out ) { printBox( out, box(), desk.owner().now() ); } ),
                HasSubstr( "fabric  in maintenance  yes  4 of 4  yes    in maintenance\n" ) );
   desk.hushes( "s1b" );
   desk.advance( 60 );
   EXPECT_THAT( text( [&]( auto & out ) { printBox( out, box(), desk.owner().now() ); } ),
                HasSubstr( "fabric  unknown  yes  -      -      silent for 46 s; it was in maintenance\n" ) );
   EXPECT_THAT( status(), AllOf( Not( HasSubstr( "  s1b/fabric  " ) ), HasSubstr( "\n  s1b  " ) ) );
   // As when its image was copied: which of the two the cable belongs to nobody knows.
   desk.says( "s1b", UnitState::inMaintenance );
   Status copy{ .box = "s1b", .life = 2, .sequence = 1, .units = {} };
   copy.units["fabric"] = { .state = UnitState::inMaintenance, .ready = true, .settled = 4, .interfaces = 4 };
   for( ; copy.sequence < 10; ++copy.sequence ) {
      desk.arrives( "status.s1b", textOf( copy ) );
      desk.advance( 10 );
   }
   EXPECT_THAT(
      text( [&]( auto & out ) { printBox( out, box(), desk.owner().now() ); } ),
      AllOf( HasSubstr( "two machines say that they are s1b\n" ), HasSubstr( "fabric  unknown  yes  -      -" ) ) );
}

TEST_F( FleetTables, aPlanABoxAndAQuestionAreToldWithTheirReasons ) {
   auto const dry = answer( "/v1/plans?label=pair:s1&waves=2&dry-run=1", layoutShape, "POST" );
   EXPECT_THAT( text( [&]( auto & out ) { printLayout( out, dry ); } ),
                AllOf( StartsWith( "nothing was changed; the waves would be\n  1: s1a/fabric\n  2: s1b/fabric\n" ),
                       HasSubstr( "s1b/fabric is put off to a later wave than 1: pair: s1 has at most 1 out" ) ) );
   std::string const id = desk.post( "/v1/plans?box=s1a&soak=90s" ).told( "/plan" );
   desk.obeys( "s1a", UnitState::entering );
   desk.advance( 5 );
   auto const plan = answer( "/v1/plans/" + id, planShape );
   double const now = desk.owner().now();
   EXPECT_THAT( text( [&]( auto & out ) { printPlan( out, plan, now ); } ),
                AllOf( HasSubstr( "waves 1; soak 90 s; deadline 30 min, then hold; stay until ordered back\n" ),
                       HasSubstr( "1     s1a/fabric  draining  5 s ago" ) ) );
   auto const box = answer( "/v1/boxes/s1a", boxShape );
   EXPECT_THAT( text( [&]( auto & out ) { printBox( out, box, now ); } ),
                AllOf( StartsWith( "s1a, heard 0 s ago; pair: s1\n" ), HasSubstr( "fabric  entering  yes  0 of 4" ) ) );
   auto const stop = answer( "/v1/can-stop?box=s1b", canStopShape );
   EXPECT_THAT( text( [&]( auto & out ) { printCanStop( out, stop ); } ),
                AllOf( StartsWith( "no\n  pair: s1 would have 2 of 2 out, and has at most 1 out\n" ),
                       HasSubstr( "pair: s1  at most 1 out  2 of 2        no      s1a/fabric (draining by " ) ) );
}

TEST_F( FleetTables, historySaysWhoTookWhatOutWithinWhichBudget ) {
   auto const history = [&] {
      return text( [&]( auto & out ) { printHistory( out, answer( "/v1/history?box=s1a", historyShape ) ); } );
   };
   EXPECT_EQ( history(), "nothing of that is on record\n" );
   std::string const id = desk.post( "/v1/plans?box=s1a" ).told( "/plan" );
   EXPECT_THAT( history(), HasSubstr( "  ordered out  eve  pair: s1 1 of 1  order 1 by " + id +
                                      ": s1a/fabric to maintenance\n" ) );
}

TEST_F( FleetTables, namesAreOneALineForCompletion ) {
   desk.post( "/v1/plans?box=s1a" );
   auto const names = [&]( std::string const & what ) {
      bool const plans = what == "plans";
      auto const of = answer( plans ? "/v1/plans" : "/v1/boxes", plans ? plansShape : boxesShape );
      return text( [&]( auto & out ) { printNames( out, what, of ); } );
   };
   EXPECT_EQ( names( "boxes" ), "s1a\ns1b\ns2a\n" );
   EXPECT_EQ( names( "units" ), "s1a/fabric\ns1b/fabric\ns2a/fabric\n" );
   EXPECT_EQ( names( "labels" ), "pair:s1\npair:s2\n" );
   EXPECT_EQ( names( "plans" ), "plan-1\n" );
   EXPECT_EQ( names( "sites" ), "" );
}

}  // namespace FleetTest
