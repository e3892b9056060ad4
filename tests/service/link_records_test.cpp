// Links as a host reports them, and the records that come of it.
#include "links/LinkRecords.h"

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dovra/StatePath.h"
#include "kel/Json.h"
#include "records/Names.h"

namespace Service {
namespace {

using Lumo::IntfId;
using Lumo::IntfKind;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

LinkReport ethernet( bool up = true ) { return { up, IntfKind::ethernet, 0, {} }; }
LinkReport bond( std::vector<std::string> members ) { return { true, IntfKind::portChannel, 0, std::move( members ) }; }
LinkReport vlan( uint16_t id, std::vector<std::string> members ) {
   return { true, IntfKind::vlan, id, std::move( members ) };
}

// Kinds hold for the whole process, so every test has interface names of its own.
class LinkRecordsTest : public ::testing::Test {
 protected:
   void link( char const * name, LinkReport const & report ) { links_.linkIs( IntfId( name ), report ); }
   void gone( char const * name ) { links_.linkDel( IntfId( name ) ); }
   std::string trouble( char const * name ) const { return links_.neverWatched( IntfId( name ) ); }
   std::string lags() const { return json( Maintenance::Path::lagConfig, "phyIntf" ); }
   std::string vlans() const { return json( Maintenance::Path::vlanStatus, "vlanStatus" ); }
   std::string states() const { return json( Maintenance::Path::intfStatus, "intfStatus" ); }
   std::string json( std::string_view directory, char const * attribute ) const {
      return Kel::toJson( Dovra::stateValue( *database_, { std::string( directory ), attribute } ) );
   }
   static IntfKind kind( char const * name ) { return IntfId( name ).kind(); }

   Kel::Ptr<Dovra::EntityManager> database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   LinkRecords links_{ state_ };
};

// What a reader finds at the moment at which a link appears.
class FirstSight final : public Interface::AllIntfStatusDir::NotifieeConst {
 public:
   FirstSight( Kel::Ptr<Interface::AllIntfStatusDir const> const & dir, std::function<void( IntfId )> look )
      : look_( std::move( look ) ) {
      notifierIs( dir );
   }
   void onIntfStatus( IntfId intf ) override { look_( intf ); }

 private:
   std::function<void( IntfId )> const look_;
};

TEST_F( LinkRecordsTest, aLinkAppearsWithItsKindStateAndMembers ) {
   std::vector<std::string> seen;
   FirstSight const sight( state_.intfStatus, [&]( IntfId intf ) {
      auto const record = state_.intfStatus->intfStatus( intf );
      seen.push_back( std::string( intf.name() ) + ' ' + enumName( intf.kind() ) + ' ' +
                      ( record ? enumName( record->operStatus() ) : "gone" ) + ' ' + lags() + ' ' + vlans() );
   } );
   link( "a1", ethernet() );
   link( "abond", bond( { "a1" } ) );
   link( "av", vlan( 20, { "abond", "a2" } ) );
   link( "a1", ethernet( false ) );  // no appearance
   gone( "av" );
   EXPECT_THAT(
      seen, ElementsAre( "a1 ethernet up {} {}", R"(abond portChannel up {"a1": {"lag": "abond"}} {})",
                         R"(av vlan up {"a1": {"lag": "abond"}} {"20": {"intf": {"a2": true, "abond": true}}})",
                         // Gone before it is made of nothing.
                         R"(av vlan gone {"a1": {"lag": "abond"}} {"20": {"intf": {"a2": true, "abond": true}}})" ) );
   EXPECT_EQ( Lumo::VlanIntfId::vlanId( IntfId( "av" ) ), 20u );
   EXPECT_EQ( states(), R"({"a1": {"operStatus": 2}, "abond": {"operStatus": 1}})" );
   EXPECT_EQ( vlans(), "{}" );
   gone( "abond" );
   gone( "abond" );
   EXPECT_EQ( lags(), "{}" );
}

TEST_F( LinkRecordsTest, namesThatTellTheirKindKeepItUnlessTheReportDiffers ) {
   link( "Port-Channel81", bond( { "Ethernet81", "Ethernet81.5" } ) );
   link( "Vlan81", vlan( 0, { "Ethernet81" } ) );
   link( "Vlan82", vlan( 83, {} ) );
   link( "Ethernet82.5", { true, IntfKind::subIntf, 0, {} } );
   link( "Ethernet83", { true, IntfKind::other, 0, {} } );
   EXPECT_EQ( kind( "Port-Channel81" ), IntfKind::portChannel );
   EXPECT_EQ( Lumo::VlanIntfId::vlanId( IntfId( "Vlan81" ) ), 81u );
   EXPECT_EQ( Lumo::VlanIntfId::vlanId( IntfId( "Vlan82" ) ), 83u );
   EXPECT_EQ( IntfId( "Ethernet82.5" ).baseKind(), IntfKind::ethernet );  // known by its name, of what it divides
   EXPECT_EQ( kind( "Ethernet83" ), IntfKind::other );
   EXPECT_EQ( lags(), R"({"Ethernet81": {"lag": "Port-Channel81"}})" );  // and no part of an Ethernet link
   EXPECT_EQ( vlans(), R"({"81": {"intf": {"Ethernet81": true}}, "83": {"intf": {}}})" );
}

TEST_F( LinkRecordsTest, whatCannotBeSampledIsNoMemberAndSaysSo ) {
   link( "b1", ethernet() );
   link( "bdummy", { true, IntfKind::other, 0, {} } );
   link( "bcpu", { true, IntfKind::cpu, 0, {} } );
   link( "bsub", { true, IntfKind::subIntf, 0, {} } );
   link( "bgood", bond( { "b1" } ) );
   link( "bbad", bond( { "b2", "bsub" } ) );
   link( "bv1", vlan( 101, { "b1", "bgood" } ) );
   link( "bv2", vlan( 102, { "b1", "bdummy" } ) );
   link( "bv3", vlan( 103, { "bbad" } ) );
   EXPECT_EQ( lags(), R"({"b1": {"lag": "bgood"}, "b2": {"lag": "bbad"}})" );
   EXPECT_EQ( vlans(), R"({"101": {"intf": {"b1": true, "bgood": true}}, "102": {"intf": {"b1": true}}, )"
                       R"("103": {"intf": {"bbad": true}}})" );
   for( char const * fine : { "b1", "bgood", "bv1", "b2", "nosuchlink" } ) EXPECT_EQ( trouble( fine ), "" ) << fine;
   EXPECT_EQ( trouble( "bdummy" ), "it is of a kind that is not sampled" );
   EXPECT_EQ( trouble( "bcpu" ), "it is the box's own end, which is not sampled" );
   EXPECT_EQ( trouble( "bsub" ), "it is a sub-interface, and those are not sampled" );
   EXPECT_EQ( trouble( "bbad" ), "its member bsub is no Ethernet link, so nobody measures what it carries" );
   EXPECT_EQ( trouble( "bv2" ),
              "its member bdummy is neither an Ethernet link nor a port-channel, so nobody measures "
              "what it carries" );
   EXPECT_EQ( trouble( "bv3" ), "its member bbad cannot be watched: " + trouble( "bbad" ) );

   // A member that is gone carries nothing.
   gone( "bdummy" );
   EXPECT_EQ( trouble( "bv2" ), "" );
   gone( "bv2" );
   EXPECT_EQ( trouble( "bv2" ), "" );
}

// The plug-in looks up the VLAN of whatever it takes for a VLAN link, and an id that is none would end the agent.
TEST_F( LinkRecordsTest, aVlanLinkWithoutAVlanIsNone ) {
   struct {
      char const * name;
      uint16_t id;
      bool isVlan;
   } const cases[] = { { "c0", 0, false },        { "c1", 1, true },        { "c4094", 4094, true },
                       { "c4095", 4095, false },  { "Vlan4095", 0, false }, { "Vlan0", 0, false },
                       { "Vlan99999", 0, false }, { "Vlan4096", 9, true } };
   for( auto const & c : cases ) {
      link( c.name, vlan( c.id, {} ) );
      EXPECT_EQ( kind( c.name ), c.isVlan ? IntfKind::vlan : IntfKind::other ) << c.name;
      EXPECT_EQ( trouble( c.name ), c.isVlan ? "" : "it is a VLAN link whose VLAN id is not between 1 and 4094" );
   }
   EXPECT_EQ( vlans(), R"({"1": {"intf": {}}, "9": {"intf": {}}, "4094": {"intf": {}}})" );
}

TEST_F( LinkRecordsTest, membersMoveComeAndGo ) {
   link( "dbond1", bond( { "d1", "d2" } ) );
   link( "dbond2", bond( {} ) );
   link( "d1", ethernet() );
   link( "d2", ethernet() );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d2": {"lag": "dbond1"}})" );

   // Taken over before the other has let go, which is not measured whole meanwhile.
   link( "dbond2", bond( { "d2", "d2" } ) );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d2": {"lag": "dbond2"}})" );
   EXPECT_EQ( trouble( "dbond1" ), "its member d2 counts for dbond2 now" );
   link( "dbond1", { false, IntfKind::portChannel, 0, { "d1", "d2" } } );  // no new claim
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d2": {"lag": "dbond2"}})" );
   link( "dbond1", bond( { "d1" } ) );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d2": {"lag": "dbond2"}})" );
   EXPECT_EQ( trouble( "dbond1" ), "" );

   // A member that is deleted is none until it is there again, whatever else is said of its port-channel.
   gone( "d2" );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}})" );
   EXPECT_EQ( trouble( "dbond2" ), "" );
   link( "dbond2", { false, IntfKind::portChannel, 0, { "d2", "d3" } } );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d3": {"lag": "dbond2"}})" );
   link( "d2", ethernet( false ) );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}, "d2": {"lag": "dbond2"}, "d3": {"lag": "dbond2"}})" );
   gone( "dbond2" );
   EXPECT_EQ( lags(), R"({"d1": {"lag": "dbond1"}})" );
   EXPECT_EQ( kind( "d3" ), IntfKind::ethernet );
}

TEST_F( LinkRecordsTest, linksOfOneVlanShareItsMembers ) {
   link( "ev1", vlan( 50, { "e1", "e2" } ) );
   link( "ev2", vlan( 50, { "e2", "e3" } ) );
   EXPECT_EQ( vlans(), R"({"50": {"intf": {"e1": true, "e2": true, "e3": true}}})" );
   link( "ev1", vlan( 50, {} ) );
   EXPECT_EQ( vlans(), R"({"50": {"intf": {"e2": true, "e3": true}}})" );
   gone( "ev2" );
   EXPECT_EQ( vlans(), R"({"50": {"intf": {}}})" );
   // Another id is another link.
   link( "ev1", vlan( 51, { "e1" } ) );
   EXPECT_EQ( vlans(), R"({"51": {"intf": {"e1": true}}})" );
}

TEST_F( LinkRecordsTest, aLinkOfAnotherKindTakesThePlaceOfTheFormer ) {
   link( "fv", vlan( 60, { "f1" } ) );
   link( "fbond", bond( { "f1" } ) );
   std::vector<IntfKind> seen;
   FirstSight const sight( state_.intfStatus, [&]( IntfId intf ) { seen.push_back( intf.kind() ); } );
   // What f1 turns out to be is no member that could be sampled.
   link( "f1", { true, IntfKind::other, 0, {} } );
   EXPECT_EQ( lags(), "{}" );
   EXPECT_EQ( vlans(), R"({"60": {"intf": {}}})" );
   EXPECT_THAT( trouble( "fbond" ), HasSubstr( "f1 is no Ethernet link" ) );
   link( "f1", ethernet() );
   EXPECT_THAT( seen, ElementsAre( IntfKind::other, IntfKind::other, IntfKind::ethernet ) );  // came, went, came
   EXPECT_EQ( lags(), R"({"f1": {"lag": "fbond"}})" );
   EXPECT_EQ( vlans(), R"({"60": {"intf": {"f1": true}}})" );
   EXPECT_EQ( trouble( "fbond" ), "" );
   link( "fbond", vlan( 61, { "f1" } ) );
   EXPECT_EQ( lags(), "{}" );
   EXPECT_EQ( vlans(), R"({"60": {"intf": {"f1": true}}, "61": {"intf": {"f1": true}}})" );
}

TEST_F( LinkRecordsTest, whatAnEarlierLifeLeftGoesWithTheWholeTruth ) {
   link( "g1", ethernet() );
   link( "g2", ethernet() );
   link( "gbond", bond( { "g1", "g2" } ) );
   link( "gold", bond( { "g3" } ) );
   link( "gv", vlan( 70, { "g1", "g2" } ) );
   link( "gw", vlan( 71, { "g1" } ) );
   std::string const before = states();

   LinkRecords later( state_ );
   std::map<IntfId, LinkReport> const truth = { { IntfId( "g1" ), ethernet() },
                                                { IntfId( "gbond" ), bond( { "g1" } ) },
                                                { IntfId( "gv" ), vlan( 70, { "g1" } ) } };
   std::vector<std::string> changes;
   FirstSight const sight( state_.intfStatus, [&]( IntfId intf ) { changes.emplace_back( intf.name() ); } );
   later.linksAre( truth );
   EXPECT_EQ( lags(), R"({"g1": {"lag": "gbond"}})" );
   EXPECT_EQ( vlans(), R"({"70": {"intf": {"g1": true}}})" );
   EXPECT_EQ( states(), R"({"g1": {"operStatus": 1}, "gbond": {"operStatus": 1}, "gv": {"operStatus": 1}})" );
   EXPECT_THAT( changes, testing::UnorderedElementsAre( "g2", "gold", "gw" ) );  // what stays was never away
   later.linksAre( {} );
   EXPECT_EQ( lags() + vlans() + states(), "{}{}{}" );
}

TEST_F( LinkRecordsTest, aReportThatSaysNothingNewChangesNothing ) {
   link( "h1", ethernet() );
   link( "hbond", bond( { "h1" } ) );
   // Somebody's own records would be put right by a write.
   state_.intfStatus->intfStatus( IntfId( "hbond" ) )->operStatusIs( Interface::IntfOperStatus::unknown );
   state_.lagConfig->phyIntfDel( IntfId( "h1" ) );
   link( "hbond", bond( { "h1" } ) );
   EXPECT_EQ( lags(), "{}" );
   EXPECT_EQ( states(), R"({"h1": {"operStatus": 1}, "hbond": {"operStatus": 0}})" );
}

}  // namespace
}  // namespace Service
