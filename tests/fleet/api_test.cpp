// What people and programs ask the owner of a fleet, and what is kept from them.
#include <gmock/gmock.h>

#include "Desk.h"

namespace FleetTest {

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char const * deskFleet = R"(
boxes:
  s1a: { labels: { pair: s1, site: fra }, units: [ fabric ] }
  s1b: { labels: { pair: s1, site: fra }, units: [ fabric ] }
  s2a: { labels: { pair: s2, site: ams }, units: [ fabric, edge ] }
budgets:
  pair: { out: 1 }
  site: { out: 2 }
heartbeat: 15s
)";

class FleetDesk : public ::testing::Test {
 protected:
   FleetDesk() {
      for( char const * box : { "s1a", "s1b", "s2a" } ) desk.says( box );
      desk.advance( 5 );
   }
   // A plan for s1a, which is drained.
   std::string drained() {
      std::string const id = desk.post( "/v1/plans?box=s1a&deadline=10m" ).told( "/plan" );
      desk.obeys( "s1a", UnitState::inMaintenance );
      desk.advance( 1 );
      return id;
   }

   Desk desk{ deskFleet };
};

}  // namespace

TEST_F( FleetDesk, toldIsHowManyAreOutWhoAndWhatIsWaitedFor ) {
   std::string const id = drained();
   auto const fleet = desk.get( "/v1/fleet" );
   EXPECT_EQ( fleet.told( "/counts" ), R"({"boxes":3,"units":4,"inService":3,"out":1,"silent":0})" );
   EXPECT_EQ( fleet.told( "/groups/0/out" ), R"([{"unit":"s1a/fabric","why":"in maintenance by )" + id + R"("}])" );
   EXPECT_EQ( fleet.told( "/plans/0/waitsFor/0" ), "s1a/fabric is drained: somebody is to order it back" );
   EXPECT_EQ( fleet.told( "/plans/0/by" ), "eve" );

   auto const box = desk.get( "/v1/boxes/s1a" );
   EXPECT_EQ( box.told( "/units/0/order/want" ), "maintenance" );
   EXPECT_EQ( box.at( "/units/0/order/number" ), box.at( "/units/0/order/acknowledged" ) );
   EXPECT_THAT( desk.get( "/v1/boxes/s1c" ).told( "/error" ), HasSubstr( "did you mean \"s1a\"?" ) );
   EXPECT_EQ( desk.get( "/v1/boxes" ).told( "/boxes/2/units/1/unit" ), "edge" );
   auto const plan = desk.get( "/v1/plans/" + id );
   EXPECT_EQ( plan.told( "/request/deadlineSeconds" ) + plan.told( "/request/waves" ), "6001" );
   EXPECT_EQ( plan.told( "/members/0/0/step" ), "drained" );
   EXPECT_EQ( desk.get( "/v1/plans/plan-99" ).status, 404u );
   EXPECT_EQ( desk.get( "/v1/plans" ).told( "/plans/0/plan" ), id );
   EXPECT_THAT( desk.get( "/" ).text, HasSubstr( "<!DOCTYPE html>" ) );
   EXPECT_EQ( desk.get( "/main.js" ).status, 200u );
   EXPECT_EQ( desk.get( "/none.js" ).status, 404u );
   EXPECT_THAT( desk.get( "/metrics" ).text,
                AllOf( HasSubstr( "maintfleet_units{state=\"inMaintenance\"} 1\n" ),
                       HasSubstr( "maintfleet_group_out{group=\"pair: s1\"} 1\n" ),
                       HasSubstr( "maintfleet_plan_state{plan=\"" + id + "\",state=\"running\"} 1\n" ) ) );
}

TEST_F( FleetDesk, whoTookWhatOutAndWhyItMightAndWhenItCameBackStaysOnRecord ) {
   std::string const id = drained();
   desk.post( "/v1/return?unit=s1a/fabric" );
   desk.obeys( "s1a", UnitState::leaving );
   desk.advance( 1 );
   desk.obeys( "s1a", UnitState::active );
   desk.advance( 2 );
   auto const of = [&]( std::string const & query, char const * member ) {
      std::string all;
      auto const answer = desk.get( "/v1/history?" + query );
      for( auto const & record : answer.at( "/history" ).as_array() )
         all += std::string( record.at( member ).is_string() ? record.at( member ).get_string() : "-" ) + ", ";
      return all;
   };
   EXPECT_EQ( of( "unit=s1a/fabric", "what" ), "ordered out, carried, drained, ordered back, carried, in service, " );
   EXPECT_EQ( of( "plan=" + id, "what" ),
              "plan made, ordered out, carried, drained, ordered back, carried, in service, "
              "plan finished, " );
   EXPECT_EQ( of( "box=s1b", "what" ), "" );
   auto const out = desk.get( "/v1/history?box=s1a&most=6" );
   EXPECT_EQ( out.told( "/history/0/by" ) + out.told( "/history/3/by" ), "eveeve" );
   EXPECT_EQ( out.told( "/history/0/budgets/0" ), R"({"group":"pair: s1","out":1,"mayBeOut":1,"units":2})" );
   EXPECT_EQ( out.told( "/history/0/budgets/1/group" ), "site: fra" );
   EXPECT_EQ( out.at( "/before" ), out.at( "/history/0/number" ) );
   EXPECT_EQ( desk.get( "/v1/history" ).told( "/before" ), "null" );
   EXPECT_EQ( of( "since=" + std::to_string( 1'800'000'000 + 1000 ), "what" ), "" );
   for( char const * wrong : { "most=10001", "since=yesterday", "before=-1", "boxes=s1a" } )
      EXPECT_EQ( desk.get( std::string( "/v1/history?" ) + wrong ).status, 400u ) << wrong;
}

TEST_F( FleetDesk, whoeverAsksWhetherABoxCanStopGetsNumbersAndChangesNothing ) {
   auto const free = desk.get( "/v1/can-stop?box=s1b" );
   EXPECT_EQ( free.told( "/canStop" ) + free.told( "/groups/0/wouldBeOut" ), "true1" );
   std::string const id = drained();
   auto const full = desk.get( "/v1/can-stop?unit=s1b/fabric" );
   EXPECT_EQ( full.told( "/canStop" ), "false" );
   EXPECT_EQ( full.told( "/groups/0/who/0/why" ), "in maintenance by " + id );
   EXPECT_EQ( full.told( "/why/0" ), "pair: s1 would have 2 of 2 out, and has at most 1 out" );
   EXPECT_EQ( desk.get( "/v1/can-stop" ).status, 400u );
   EXPECT_EQ( desk.get( "/v1/can-stop?box=s9" ).status, 409u );
}

TEST_F( FleetDesk, aPlanIsMadeAsWrittenAndNotAtAllWhereAWordOfItIsWrong ) {
   auto const dry = desk.post( "/v1/plans?label=site:fra&waves=2&dry-run=1" );
   EXPECT_EQ( dry.told( "/plan" ) + dry.told( "/waves" ), R"(null[["s1a/fabric"],["s1b/fabric"]])" );
   EXPECT_THAT( dry.told( "/reasons/0" ), HasSubstr( "s1b/fabric is put off" ) );
   for( char const * wrong : { "", "dry-run=1", "all=1&box=s1a", "lable=site:fra", "label=site", "waves=0", "soak=1x",
                               "deadline=0s", "at-deadline=go", "dry-run=yes", "box=", "stay=-1s" } ) {
      EXPECT_EQ( desk.post( std::string( "/v1/plans?" ) + wrong ).status, 400u ) << wrong;
   }
   EXPECT_EQ( desk.get( "/v1/plans" ).told( "/plans" ), "[]" );
   auto const made =
      desk.post( "/v1/plans?label=site:ams&unit=edge&waves=1,10%25&soak=1m&at-deadline=give-back&stay=0s" );
   auto const request = desk.get( "/v1/plans/" + made.told( "/plan" ) ).at( "/request" );
   EXPECT_EQ( boost::json::serialize( request ),
              R"({"boxes":[],"labels":{"site":"ams"},"unit":"edge","waves":"1, 10%","soakSeconds":60,)"
              R"("deadlineSeconds":1800,"atDeadline":"give-back","staySeconds":0})" );
   EXPECT_THAT( desk.sentTo( "s2a" ), HasSubstr( "give-back" ) );
   auto const again = desk.post( "/v1/plans?box=s2a" );
   EXPECT_EQ( again.status, 409u );
   EXPECT_EQ( again.told( "/why/0" ), "s2a/edge is in " + made.told( "/plan" ) + ", which is running" );
}

TEST_F( FleetDesk, plansStopAndGoOnAndUnitsComeBackAsPeopleSay ) {
   std::string const id = drained();
   std::string const plan = "/v1/plans/" + id;
   EXPECT_EQ( desk.post( plan + "/resume" ).status, 409u );
   EXPECT_EQ( desk.post( plan + "/pause" ).status, 200u );
   EXPECT_EQ( desk.get( plan ).told( "/why" ), "asked for by eve" );
   EXPECT_EQ( desk.post( plan + "/resume?without=s1a" ).status, 400u );
   EXPECT_EQ( desk.post( plan + "/resume" ).status, 200u );
   EXPECT_EQ( desk.post( "/v1/plans/plan-99/pause" ).status, 404u );
   EXPECT_EQ( desk.post( plan + "/stop" ).status, 404u );

   EXPECT_EQ( desk.post( "/v1/brake?site=fra" ).status, 200u );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes/0/by" ), "eve" );
   EXPECT_EQ( desk.get( plan ).told( "/state" ), "paused" );
   EXPECT_EQ( desk.post( "/v1/brake?site=nowhere" ).status, 409u );
   EXPECT_EQ( desk.post( "/v1/release?site=fra" ).status, 200u );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes" ), "[]" );

   EXPECT_EQ( desk.post( "/v1/return?box=s1b" ).status, 409u );
   EXPECT_EQ( desk.post( "/v1/return?box=s1a" ).told( "/units" ), R"(["s1a/fabric"])" );
   EXPECT_THAT( desk.sentTo( "s1a" ), HasSubstr( R"("want":"service")" ) );
   EXPECT_EQ( desk.post( plan + "/cancel" ).status, 200u );
   EXPECT_EQ( desk.get( plan ).told( "/state" ), "cancelled" );
   EXPECT_EQ( desk.post( "/v1/accept" ).status, 409u );
   EXPECT_EQ( desk.post( "/v1/fleet" ).status, 405u );
}

TEST_F( FleetDesk, overTheNetworkOnlyAnOperatorsKeyChangesAnything ) {
   EXPECT_EQ( desk.overNet( "GET", "/v1/fleet", "" ).status, 200u );
   auto const closed = desk.overNet( "POST", "/v1/brake", "Bearer 0123456789abcdef" );
   EXPECT_EQ( closed.status, 403u );
   EXPECT_THAT( closed.told( "/error" ), HasSubstr( "/run/fleet.sock" ) );
   desk.api().keysIs( Keys( "# operators\nbob fedcba9876543210\n\nalice 0123456789abcdef\n", "keys" ) );
   for( char const * key : { "", "Bearer ", "Bearer 0123456789abcde", "Bearer 0123456789abcdef0", "0123456789abcdef",
                             "Basic 0123456789abcdef" } ) {
      EXPECT_EQ( desk.overNet( "POST", "/v1/brake", key ).status, 401u ) << key;
   }
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes" ), "[]" );
   EXPECT_EQ( desk.overNet( "POST", "/v1/brake", "bearer 0123456789abcdef" ).by, "alice" );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes/0/by" ), "alice" );
   desk.api().keysIs( Keys( "# nobody any more\n", "keys" ) );
   EXPECT_EQ( desk.overNet( "POST", "/v1/brake", "Bearer 0123456789abcdef" ).status, 401u );
   for( char const * bad : { "alice", "alice short", "alice 0123456789abcdef more" } ) {
      EXPECT_THROW( Keys( bad, "keys" ), std::runtime_error ) << bad;
   }
}

TEST_F( FleetDesk, aStatusUnderAnothersKeyIsDroppedAndSaidOnceAMinute ) {
   Status forged;
   forged.box = "s1a";
   forged.life = 99;
   forged.units["fabric"].state = UnitState::failed;
   for( int i = 0; i < 10; ++i ) {
      desk.arrives( "status.s1b", textOf( forged ) );
      desk.arrives( "status.s2a", "{}" );
      desk.arrives( "status.made-up" + std::to_string( i ), textOf( forged ) );
      desk.advance( 5 );
   }
   EXPECT_EQ( desk.get( "/v1/boxes/s1a" ).told( "/units/0/state" ), "active" );
   EXPECT_EQ( desk.logged( "box s1b says that it is s1a: a forged status" ), 1u );
   EXPECT_EQ( desk.logged( "box s2a has sent what cannot be read: status.box is missing" ), 1u );
   EXPECT_EQ( desk.logged( "is in no inventory" ), 1u );
   desk.advance( 15 );
   desk.arrives( "status.s1b", textOf( forged ) );
   desk.advance( 1 );
   EXPECT_EQ( desk.logged( "a forged status" ), 2u );
}

// As when the image of a box was copied with its key.
TEST_F( FleetDesk, aBoxThatTwoMachinesSayTheyAreIsInServiceForNobody ) {
   Status copy;
   copy.box = "s1a";
   copy.life = 2;
   copy.units["fabric"].state = UnitState::active;
   auto const standing = [&] { return desk.get( "/v1/boxes/s1a" ).told( "/units/0/why" ); };
   auto const pass = [&]( int seconds ) {
      for( int i = 0; i < seconds; i += 10 ) {
         ++copy.sequence;
         desk.arrives( "status.s1a", textOf( copy ) );
         desk.advance( 10 );
      }
   };
   pass( 60 );
   EXPECT_EQ( standing(), "" ) << "what is late may be of a life that is over";
   pass( 20 );
   EXPECT_EQ( standing(), "two machines say that they are s1a" );
   EXPECT_EQ( desk.get( "/v1/can-stop?box=s1b" ).told( "/canStop" ), "false" );
   // The copy is turned off. Which of the two is meant to be it, only a person knows.
   desk.advance( 120 );
   EXPECT_EQ( standing(), "two machines say that they are s1a" );
}

TEST_F( FleetDesk, whatCannotBeKeptIsNotOrderedAndIsTriedAgain ) {
   desk.diskIs( false );
   desk.advance( 1 );
   std::size_t const before = desk.sent();
   EXPECT_EQ( desk.post( "/v1/plans?box=s1a" ).status, 503u );
   desk.diskIs( true );
   EXPECT_EQ( desk.post( "/v1/plans?box=s1a&stay=0s" ).status, 200u );
   desk.diskIs( false );
   desk.obeys( "s1a", UnitState::inMaintenance );
   std::size_t const ordered = desk.sent();
   EXPECT_GT( ordered, before );
   desk.advance( 90 );
   EXPECT_EQ( desk.sent(), ordered );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "the disk is full" );
   EXPECT_EQ( desk.logged( "nothing is ordered, as it cannot be kept: the disk is full" ), 2u );
   desk.diskIs( true );
   desk.advance( 1 );
   EXPECT_THAT( desk.sentTo( "s1a" ), HasSubstr( R"("want":"service")" ) );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "" );
}

TEST_F( FleetDesk, aDiskThatDoesNotEvenAnswerMakesNobodyForgetWhoIsOut ) {
   std::string const id = desk.post( "/v1/plans?box=s1a" ).told( "/plan" );
   desk.diskIs( false, false );
   EXPECT_EQ( desk.post( "/v1/brake" ).status, 503u );
   desk.obeys( "s1a", UnitState::active );
   desk.advance( 5 );
   EXPECT_EQ( desk.get( "/v1/can-stop?box=s1b" ).told( "/canStop" ), "false" );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "the disk does not answer" );
   desk.diskIs( true );
   desk.advance( 2 );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "" );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes" ), "[]" );
   EXPECT_EQ( desk.post( "/v1/plans/" + id + "/pause" ).status, 200u );
}

TEST_F( FleetDesk, aClockThatGoesBackStandsStillAndSaysSo ) {
   double const before = desk.owner().now();
   desk.clockBack( 120 );
   desk.advance( 60 );
   EXPECT_EQ( desk.owner().now(), before );
   EXPECT_THAT( desk.get( "/v1/fleet" ).told( "/doubt" ), HasSubstr( "the clock went back by" ) );
   desk.advance( 70 );
   EXPECT_EQ( desk.owner().now(), before + 10 );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "" );
}

TEST( FleetOwner, asksTheBrokerForItsEarlierLifeBeforeItOrdersAnything ) {
   Desk desk( deskFleet );
   desk.brokerIs( false );
   desk.advance( 2 );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/broker" ), "nobody answers" );
   EXPECT_TRUE( desk.asked().empty() );
   EXPECT_THAT( desk.post( "/v1/plans?box=s1a" ).text, HasSubstr( "what was ordered before the start is not known" ) );
   // An order of books that were lost.
   Desired lost{ "s1a", {} };
   lost.orders["fabric"] = { .number = 7, .want = Want::maintenance, .plan = "plan-6" };
   desk.brokerIs( true );
   desk.owner().turn();
   EXPECT_EQ( desk.asked().size(), 3u );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/reachable" ), "false" );
   desk.arrives( "desired.s1a", textOf( lost ) );
   desk.advance( 5 );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/reachable" ), "true" );
   EXPECT_THAT( desk.get( "/v1/fleet" ).told( "/doubt" ), HasSubstr( "s1a/fabric is sent by the broker order 7" ) );
   EXPECT_EQ( desk.post( "/v1/plans?box=s1a" ).status, 409u );
   EXPECT_EQ( desk.sent(), 0u );
   EXPECT_EQ( desk.post( "/v1/accept" ).status, 200u );
   EXPECT_THAT( desk.sentTo( "s1a" ), HasSubstr( R"("number":8)" ) );
}

TEST( FleetOwner, listensForAnotherEachTimeThatItHasConnectedBeforeItOrders ) {
   Desk desk( deskFleet );
   auto const reachable = [&] { return desk.get( "/v1/fleet" ).told( "/reachable" ); };
   desk.advance( 6 );
   EXPECT_EQ( reachable(), "true" );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/doubt" ), "" ) << "it is no rival of its own";
   desk.brokerIs( false );
   desk.advance( 1 );
   desk.brokerIs( true );
   desk.advance( 3.5 );
   EXPECT_EQ( reachable(), "false" );
   desk.advance( 1 );
   EXPECT_EQ( reachable(), "true" );
   // As when the machine was asleep.
   desk.clockBack( -60 );
   desk.owner().turn();
   EXPECT_EQ( reachable(), "false" );
}

TEST_F( FleetDesk, anotherOwnerStopsAllOrdersUntilItHasGone ) {
   desk.advance( 10 );
   std::string const id = desk.post( "/v1/plans?box=s1a&stay=1m" ).told( "/plan" );
   desk.obeys( "s1a", UnitState::inMaintenance );
   desk.advance( 55 );
   std::size_t const before = desk.sent();
   // The stay is over meanwhile.
   for( int i = 0; i < 20; ++i ) {
      // One that cannot be read may be one of another release.
      desk.arrives( "owner", i < 10 ? R"({"owner":"ctl-2, process 7","mark":"its"})" : "{}" );
      desk.advance( 1 );
   }
   EXPECT_EQ( desk.sent(), before );
   EXPECT_EQ( desk.logged( "another owner of this fleet is running (ctl-2, process 7)" ), 1u );
   for( char const * change : { "/v1/return?box=s1a", "/v1/plans?box=s1b", "/v1/accept" } ) {
      Desk::Answer const answer = desk.post( change );
      EXPECT_EQ( answer.status, 409u ) << change;
      EXPECT_THAT( answer.text, HasSubstr( "another owner" ) ) << change;
   }
   EXPECT_THAT( desk.get( "/v1/fleet" ).told( "/doubt" ), HasSubstr( "which says nothing that can be read" ) );
   desk.advance( 9 );
   EXPECT_EQ( desk.sent(), before );
   desk.advance( 2 );
   EXPECT_EQ( desk.logged( "no other owner" ), 1u );
   EXPECT_THAT( desk.sentTo( "s1a" ), HasSubstr( R"("want":"service")" ) );
}

TEST_F( FleetDesk, aStreamTellsAllAtFirstAndThenOnlyWhatHasChanged ) {
   auto const stream = desk.api().answer( { "GET", "/v1/stream", "" } ).stream;
   int woken = 0;
   stream->onMore( [&] { ++woken; } );
   EXPECT_THAT( stream->next( 1 ), AllOf( HasSubstr( "event: fleet\ndata: {\"now\":" ),
                                          HasSubstr( "\"first\":true,\"boxes\":[{\"heard\":" ) ) );
   std::string const rest = stream->next( 10'000 );
   EXPECT_THAT( rest, AllOf( Not( HasSubstr( "first" ) ), Not( HasSubstr( "s1a" ) ), HasSubstr( "\"box\":\"s2a\"" ) ) );
   EXPECT_EQ( stream->next( 10'000 ), "" );
   desk.advance( 12 );
   EXPECT_EQ( woken, 0 ) << "heartbeats are no news";
   desk.advance( 3 );
   EXPECT_EQ( woken, 1 );
   EXPECT_EQ( stream->next( 10'000 ), ": nothing new\n\n" );
   EXPECT_EQ( stream->next( 10'000 ), "" );
   desk.says( "s1b", UnitState::active, "Ethernet1 is busy" );
   desk.advance( 2 );
   EXPECT_EQ( woken, 2 );
   EXPECT_THAT( stream->next( 10'000 ), AllOf( HasSubstr( "busy" ), HasSubstr( "s1b" ), Not( HasSubstr( "s1a" ) ) ) );
   EXPECT_EQ( stream->next( 10'000 ), "" );
   // Whose clock goes back says so, and that he is there, while his time stands still.
   desk.clockBack( 100 );
   desk.advance( 5 );
   EXPECT_THAT( stream->next( 10'000 ), HasSubstr( "the clock went back by 9" ) );
   while( !stream->next( 10'000 ).empty() ) {
   }
   int const wokenBefore = woken;
   desk.advance( 40 );
   EXPECT_GT( woken, wokenBefore );
   EXPECT_NE( stream->next( 10'000 ), "" );
   desk.advance( 100 );
   while( !stream->next( 10'000 ).empty() ) {
   }
   desk.owner().inventoryIs( readInventory( "boxes: { s2a: { units: [ fabric ] } }", "fleet.yaml" ) );
   desk.feed().handleInventory();
   desk.advance( 2 );
   EXPECT_THAT( stream->next( 10'000 ), AllOf( HasSubstr( "\"first\":true" ), Not( HasSubstr( "s1b" ) ) ) );
}

}  // namespace FleetTest
