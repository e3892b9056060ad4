// What the kernel says of links of all kinds, message by message, and the records and rows that come of it.
#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "LinkMessage.h"
#include "dovra/StatePath.h"
#include "feed/LinkFeed.h"
#include "kel/Json.h"
#include "records/Names.h"

namespace Host {
namespace {

using Linux::LinkMessage;
using Lumo::IntfId;
using Lumo::IntfKind;

class LinkKinds : public ::testing::Test {
 protected:
   struct Spec {
      std::string kind = "veth";
      int below = 0;
      int vlanId = 0;
      bool vlanAware = false;
      int master = 0;
      bool up = true;
   };

   // Messages wait until now() or known(), as they do in the kernel until somebody reads.
   void link( int index, std::string const & name, Spec const & spec ) {
      LinkMessage message( RTM_NEWLINK, index, IFF_UP );
      message.named( name ).operState( spec.up ? IF_OPER_UP : IF_OPER_DOWN );
      if( spec.below ) message.number( IFLA_LINK, static_cast<unsigned>( spec.below ) );
      if( spec.master ) message.number( IFLA_MASTER, static_cast<unsigned>( spec.master ) );
      if( spec.kind == "vlan" ) {
         message.vlan( spec.kind, static_cast<std::uint16_t>( spec.vlanId ) );
      } else if( spec.kind == "bridge" ) {
         message.kind( spec.kind, IFLA_BR_VLAN_FILTERING, std::uint8_t{ spec.vlanAware } );
      } else if( !spec.kind.empty() ) {
         message.kind( spec.kind );
      }
      hear( message );
   }
   void gone( int index ) { hear( LinkMessage( RTM_DELLINK, index ) ); }
   void vlans( int port, std::uint16_t first, std::uint16_t last ) {
      hear( LinkMessage::vlans( RTM_NEWVLAN, port, first, last ) );
   }
   void noVlans( int port, std::uint16_t first, std::uint16_t last ) {
      hear( LinkMessage::vlans( RTM_DELVLAN, port, first, last ) );
   }
   void hear( LinkMessage const & message ) { EXPECT_EQ( table_.handle( message.bytes() ), 0 ); }

   void now() { table_.settle(); }
   // What was said so far was the answer to a dump of the links, and `vlanTables` says what follows of VLAN tables.
   void known( std::function<void()> const & vlanTables = [] {} ) {
      hear( LinkMessage::end() );
      EXPECT_EQ( table_.missing(), Linux::LinkTable::Missing::vlans );
      table_.askedIs( Linux::LinkTable::Missing::vlans );
      vlanTables();
      hear( LinkMessage::end() );
      EXPECT_TRUE( table_.known() );
      now();
   }
   void asked() { table_.askedIs( Linux::LinkTable::Missing::links ); }

   std::string lags() const { return json( Maintenance::Path::lagConfig, "phyIntf" ); }
   std::string vlanMembers() const { return json( Maintenance::Path::vlanStatus, "vlanStatus" ); }
   std::string states() const { return json( Maintenance::Path::intfStatus, "intfStatus" ); }
   std::string json( std::string_view directory, char const * attribute ) const {
      return Kel::toJson( Dovra::stateValue( *database_, { std::string( directory ), attribute } ) );
   }
   std::string trouble( char const * name ) const { return records_.neverWatched( IntfId( name ) ); }
   bool hasRow( char const * name ) const { return writer_.hasRow( IntfId( name ) ); }

   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Service::LinkRecords records_{ state_ };
   std::vector<std::string> told_;
   LinkFeed feed_{ records_, writer_, [this]( std::string const & text, bool ) { told_.push_back( text ); } };
   Linux::LinkTable table_{ feed_ };
};

TEST_F( LinkKinds, areToldByTheKernelAndTheNaming ) {
   asked();
   link( 1, "lo", { .kind = "" } );
   link( 2, "eth0", { .kind = "" } );
   link( 3, "tun0", { .kind = "tun" } );
   link( 4, "bond0", { .kind = "bond" } );
   link( 5, "team0", { .kind = "team" } );
   link( 6, "br0", { .kind = "bridge" } );
   link( 7, "v100", { .kind = "vlan", .below = 2, .vlanId = 100 } );
   link( 8, "eth0.100", { .kind = "vlan", .below = 2, .vlanId = 100 } );
   link( 9, "bond0.7", { .kind = "vlan", .below = 4, .vlanId = 7 } );
   link( 10, "br0.20", { .kind = "vlan", .below = 6, .vlanId = 20 } );
   link( 11, "eth0.x", { .kind = "vlan", .below = 2, .vlanId = 101 } );
   link( 12, "eth1.102", { .kind = "vlan", .below = 2, .vlanId = 102 } );
   link( 13, "Ethernet1.5", {} );
   link( 14, "eth0.9", {} );  // a name is free, and this one divides nothing
   link( 15, "far", { .kind = "vlan", .below = 4711, .vlanId = 103 } );
   link( 16, "v100.5", { .kind = "vlan", .below = 7, .vlanId = 5 } );
   known();
   std::map<std::string, IntfKind> const expected = {
      { "lo", IntfKind::ethernet },         { "eth0", IntfKind::ethernet },     { "tun0", IntfKind::ethernet },
      { "bond0", IntfKind::portChannel },   { "team0", IntfKind::portChannel }, { "br0", IntfKind::other },
      { "v100", IntfKind::vlan },           { "eth0.100", IntfKind::subIntf },  { "bond0.7", IntfKind::subIntf },
      { "br0.20", IntfKind::vlan },         { "eth0.x", IntfKind::vlan },       { "eth1.102", IntfKind::vlan },
      { "Ethernet1.5", IntfKind::subIntf }, { "eth0.9", IntfKind::ethernet },   { "far", IntfKind::other },
      { "v100.5", IntfKind::vlan },
   };
   for( auto const & [name, kind] : expected ) {
      EXPECT_EQ( IntfId( name ).kind(), kind ) << name;
      EXPECT_EQ( hasRow( name.c_str() ), kind == IntfKind::ethernet ) << name;
   }
   EXPECT_EQ( vlanMembers(), R"({"5": {"intf": {}}, "20": {"intf": {}}, "100": {"intf": {"eth0": true}}, )"
                             R"("101": {"intf": {"eth0": true}}, "102": {"intf": {"eth0": true}}})" );
   EXPECT_EQ( trouble( "eth0.100" ), "it is a sub-interface, and those are not sampled" );
   for( char const * none : { "br0", "far" } ) EXPECT_EQ( trouble( none ), "it is of a kind that is not sampled" );
   EXPECT_THAT( trouble( "v100.5" ), testing::HasSubstr( "its member v100 is neither an Ethernet link" ) );
   for( char const * fine : { "lo", "eth0", "bond0", "team0", "v100", "eth0.9" } ) EXPECT_EQ( trouble( fine ), "" );
}

TEST_F( LinkKinds, membersOfABondFollowTheirMasterAndTheirNames ) {
   asked();
   link( 2, "m0", { .master = 9 } );  // before its bond
   link( 3, "m1", { .master = 9 } );
   link( 9, "mb", { .kind = "bond" } );
   link( 10, "mteam", { .kind = "team" } );
   known();
   EXPECT_EQ( lags(), R"({"m0": {"lag": "mb"}, "m1": {"lag": "mb"}})" );
   link( 2, "m2", { .master = 9 } );
   now();
   EXPECT_EQ( lags(), R"({"m1": {"lag": "mb"}, "m2": {"lag": "mb"}})" ) << "a member renamed";
   link( 9, "mc", { .kind = "bond" } );
   now();
   EXPECT_EQ( lags(), R"({"m1": {"lag": "mc"}, "m2": {"lag": "mc"}})" ) << "the bond renamed";
   link( 3, "m1", { .master = 10 } );
   now();
   EXPECT_EQ( lags(), R"({"m1": {"lag": "mteam"}, "m2": {"lag": "mc"}})" ) << "moved";
   link( 2, "m2", {} );
   now();
   EXPECT_EQ( lags(), R"({"m1": {"lag": "mteam"}})" );
   // All at once: the name passes to another link, of another bond.
   gone( 3 );
   link( 2, "m1", { .master = 9 } );
   now();
   EXPECT_EQ( lags(), R"({"m1": {"lag": "mc"}})" );
   gone( 9 );
   link( 2, "m1", {} );
   now();
   EXPECT_EQ( lags(), "{}" );
   EXPECT_EQ( states(), R"({"m1": {"operStatus": 1}, "mteam": {"operStatus": 1}})" );
}

TEST_F( LinkKinds, membersOfAVlanFollowTheBridgesVlanTable ) {
   asked();
   link( 2, "p0", { .master = 9 } );
   link( 3, "p1", { .master = 9 } );
   link( 4, "pbond", { .kind = "bond", .master = 9 } );
   link( 5, "pm", { .master = 4 } );
   link( 9, "pbr", { .kind = "bridge", .vlanAware = true } );
   link( 10, "pv20", { .kind = "vlan", .below = 9, .vlanId = 20 } );
   link( 11, "pv30", { .kind = "vlan", .below = 9, .vlanId = 30 } );
   known( [this] {
      vlans( 2, 1, 1 );
      vlans( 2, 10, 20 );
      vlans( 4, 20, 4094 );
      vlans( 9, 20, 20 );  // the bridge's own
   } );
   EXPECT_EQ( vlanMembers(), R"({"20": {"intf": {"p0": true, "pbond": true}}, "30": {"intf": {"pbond": true}}})" );
   EXPECT_EQ( lags(), R"({"pm": {"lag": "pbond"}})" );
   vlans( 3, 20, 30 );
   noVlans( 2, 15, 25 );
   noVlans( 4, 30, 30 );
   now();
   EXPECT_EQ( vlanMembers(), R"({"20": {"intf": {"p1": true, "pbond": true}}, "30": {"intf": {"p1": true}}})" );
   // A table that comes before its port is one, and a port that leaves the bridge.
   vlans( 7, 30, 30 );
   link( 7, "p7", { .master = 9 } );
   link( 3, "p1", {} );
   now();
   EXPECT_EQ( vlanMembers(), R"({"20": {"intf": {"pbond": true}}, "30": {"intf": {"p7": true}}})" );
   link( 9, "pbr", { .kind = "bridge" } );
   now();
   EXPECT_EQ( vlanMembers(), R"({"20": {"intf": {"p0": true, "p7": true, "pbond": true}}, )"
                             R"("30": {"intf": {"p0": true, "p7": true, "pbond": true}}})" )
      << "a bridge that looks at no tags carries every VLAN on every port";
   gone( 7 );
   gone( 10 );
   now();
   EXPECT_EQ( vlanMembers(), R"({"30": {"intf": {"p0": true, "pbond": true}}})" );
}

TEST_F( LinkKinds, changeWithTheLinkBelow ) {
   asked();
   link( 2, "q0", {} );
   link( 3, "q0.5", { .kind = "vlan", .below = 2, .vlanId = 5 } );
   link( 4, "q5", { .kind = "vlan", .below = 2, .vlanId = 6 } );
   known();
   link( 2, "q1", {} );
   now();
   EXPECT_EQ( IntfId( "q0.5" ).kind(), IntfKind::vlan );
   EXPECT_EQ( vlanMembers(), R"({"5": {"intf": {"q1": true}}, "6": {"intf": {"q1": true}}})" );
   // The names pass on: what was a VLAN link is an Ethernet link now, and the other way round.
   gone( 4 );
   link( 2, "q5", {} );
   link( 4, "q1", { .kind = "vlan", .below = 2, .vlanId = 7 } );
   now();
   EXPECT_EQ( vlanMembers(), R"({"5": {"intf": {"q5": true}}, "7": {"intf": {"q5": true}}})" );
   EXPECT_EQ( trouble( "q1" ) + trouble( "q5" ), "" );
   EXPECT_TRUE( hasRow( "q5" ) );
   EXPECT_FALSE( hasRow( "q1" ) );
}

// What a reader of the records hears of one link.
class Heard final : public Interface::IntfStatus::NotifieeConst {
 public:
   explicit Heard( Kel::Ptr<Interface::IntfStatus const> const & status ) { notifierIs( status ); }
   void onOperStatus() override { heard.push_back( notifier()->operStatus() ); }
   std::vector<Interface::IntfOperStatus> heard;
};

TEST_F( LinkKinds, aFlapWithinOneReadIsHeard ) {
   asked();
   link( 2, "f0", {} );
   known();
   Heard const reader( state_.intfStatus->intfStatus( IntfId( "f0" ) ) );
   link( 2, "f0", { .up = false } );
   link( 2, "f0", {} );
   now();
   using enum Interface::IntfOperStatus;
   EXPECT_THAT( reader.heard, testing::ElementsAre( down, up ) );
}

TEST_F( LinkKinds, areRightAfterADumpThatWasOvertaken ) {
   asked();
   link( 2, "r0", { .master = 9 } );
   link( 9, "rbr", { .kind = "bridge", .vlanAware = true } );
   link( 10, "rv", { .kind = "vlan", .below = 9, .vlanId = 20 } );
   known( [this] { vlans( 2, 20, 20 ); } );
   std::string const before = vlanMembers() + states();
   // Each of these spoils what has come so far, and the whole is asked for again.
   std::vector<std::function<void()>> const spoils = {
      [this] { table_.handleLoss(); },
      [this] { hear( LinkMessage( RTM_NEWLINK, 2 ).named( "r0" ).operState( IF_OPER_UP ).interrupted() ); },
      [this] {
         hear( LinkMessage::end() );
         table_.askedIs( Linux::LinkTable::Missing::vlans );
         link( 5, "new", {} );
      },
      [this] {
         hear( LinkMessage::end() );
         table_.askedIs( Linux::LinkTable::Missing::vlans );
         gone( 2 );
      },
   };
   for( auto const & spoil : spoils ) {
      table_.handleLoss();
      asked();
      spoil();
      hear( LinkMessage::end() );
      EXPECT_EQ( table_.missing(), Linux::LinkTable::Missing::links );
      now();
      EXPECT_EQ( vlanMembers() + states(), before );
   }
   EXPECT_EQ( table_.handle( LinkMessage::end( EPERM ).bytes() ), EPERM );
   asked();
   link( 9, "rbr", { .kind = "bridge", .vlanAware = true } );
   link( 10, "rv", { .kind = "vlan", .below = 9, .vlanId = 20 } );
   link( 11, "r0", { .master = 9 } );
   hear( LinkMessage::end() );
   table_.askedIs( Linux::LinkTable::Missing::vlans );
   EXPECT_EQ( table_.handle( LinkMessage::end( EOPNOTSUPP ).bytes() ), 0 ) << "no bridge was ever made";
   now();
   EXPECT_EQ( vlanMembers(), R"({"20": {"intf": {}}})" );
   EXPECT_EQ( states(), R"({"r0": {"operStatus": 1}, "rbr": {"operStatus": 1}, "rv": {"operStatus": 1}})" );
}

// Whatever part of a message is missing, or lies about its length: nothing beyond the message is read. (Sanitizers
// would tell.) What is whole is understood.
TEST_F( LinkKinds, messagesThatAreCutOffOrLieAreHarmless ) {
   std::vector<LinkMessage> messages;
   messages.push_back(
      std::move( LinkMessage( RTM_NEWLINK, 2, IFF_UP ).named( "s0" ).operState( IF_OPER_UP ).vlan( "vlan", 5 ) ) );
   messages.push_back( std::move( LinkMessage( RTM_NEWLINK, 3 )
                                     .named( "s1" )
                                     .operState( 6 )
                                     .kind( "bridge", IFLA_BR_VLAN_FILTERING, std::uint8_t{ 1 } ) ) );
   messages.push_back( LinkMessage::vlans( RTM_NEWVLAN, 2, 1, 4094 ) );
   messages.push_back( LinkMessage( RTM_DELLINK, 3 ) );
   messages.push_back( LinkMessage::end( EPERM ) );
   for( auto const & message : messages ) {
      for( std::size_t length = 0; length <= message.bytes().size(); ++length ) {
         // Of exactly this size, so that a sanitizer sees the end.
         std::vector<std::byte> cut( message.bytes().begin(),
                                     message.bytes().begin() + static_cast<std::ptrdiff_t>( length ) );
         (void)table_.handle( cut );
         if( length < sizeof( nlmsghdr ) ) continue;
         reinterpret_cast<nlmsghdr *>( cut.data() )->nlmsg_len = static_cast<unsigned>( length );
         (void)table_.handle( cut );
      }
      for( std::size_t at = sizeof( nlmsghdr ); at < message.bytes().size(); ++at ) {
         for( int const value : { 0, 1, 3, 255 } ) {
            std::vector<std::byte> bent( message.bytes().begin(), message.bytes().end() );
            bent[at] = static_cast<std::byte>( value );
            (void)table_.handle( bent );
         }
      }
   }
}

}  // namespace
}  // namespace Host
