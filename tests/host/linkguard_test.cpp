// What would be cut off with a link: the way to the box, and addresses that do not come back.
#include <gmock/gmock.h>

#include <fstream>

#include "LinkMessage.h"
#include "control/LinkGuard.h"
#include "linux/LinkMonitor.h"
#include "net/PrivateNetwork.h"

namespace Host {
namespace {

using Linux::LinkMessage;
using Lumo::IntfId;

class Nobody : public Linux::LinkListener, public Linux::TroubleListener {
   void onLink( Linux::Link const & ) override {}
   void onLinkGone( Linux::Link const & ) override {}
   void onVlans( int ) override {}
   void onSettled( Linux::LinkTable const & ) override {}
   void onTrouble( std::string const &, double ) override {}
   void onRecovered() override {}
};

class LinkGuards : public PrivateNetwork {
 protected:
   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( PrivateNetwork::SetUp() );
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << 0;
      ip( "link add name v0 type veth peer name v1\nlink add name w0 type veth peer name w1\n"
          "link add name br0 type bridge\nlink set v0 up\nlink set v1 up\nlink set w0 up\nlink set w1 up\n"
          "link set br0 up\naddress add 10.1.0.1/24 dev v0\naddress add 10.2.0.1/24 dev w0\n"
          "address add 2001:db8:1::1/64 dev v0 nodad\naddress add 2001:db8:2::1/64 dev w0 nodad" );
      guard();
   }

   // With the links as they are now.
   void guard() {
      monitor_.emplace( nobody_, nobody_ );
      monitor_->start();
      guard_.emplace( monitor_->table() );
   }
   std::string why( char const * name, std::string const & session = "" ) {
      return guard_->protectedBy( IntfId( name ), session );
   }

   Nobody nobody_;
   std::optional<Linux::LinkMonitor> monitor_;
   std::optional<LinkGuard> guard_;
};

TEST_F( LinkGuards, keepTheLinksOfDefaultRoutes ) {
   EXPECT_EQ( why( "v0" ) + why( "w0" ) + why( "nosuch" ), "" );
   struct Case {
      char const * what;
      std::string set, unset;
      bool v0, w0;
   };
   std::vector<Case> const cases{
      { "IPv4", "route add default via 10.1.0.2", "route del default", true, false },
      { "IPv6", "route add default via 2001:db8:2::2", "route del ::/0", false, true },
      { "several", "route add default nexthop via 10.1.0.2 nexthop via 10.2.0.2", "route del default", true, true },
      { "several, IPv6", "route add default nexthop via 2001:db8:1::2 nexthop via 2001:db8:2::2", "route del ::/0",
        true, true },
      { "a second, worse one", "route add default via 10.1.0.2\nroute add default via 10.2.0.2 metric 9",
        "route del default\nroute del default", true, true },
      { "of another table", "route add default via 10.1.0.2 table 7", "route del default table 7", false, false },
      { "that drops", "route add blackhole default", "route del default", false, false },
      { "not to everywhere", "route add 0.0.0.0/1 via 10.1.0.2", "route del 0.0.0.0/1", false, false },
      { "next-hop objects",
        "nexthop add id 1 via 10.1.0.2 dev v0\nnexthop add id 2 via 10.2.0.2 dev w0\nnexthop add id 9 group 1/2\n"
        "route add default nhid 9",
        "route del default\nnexthop del id 9\nnexthop del id 2\nnexthop del id 1", true, true },
   };
   for( bool const objectsOnly : { false, true } ) {
      std::ofstream( "/proc/sys/net/ipv4/nexthop_compat_mode" ) << !objectsOnly;
      for( auto const & [what, set, unset, v0, w0] : cases ) {
         ip( set );
         EXPECT_EQ( why( "v0" ), v0 ? "the default route leaves by it" : "" ) << what;
         EXPECT_EQ( why( "w0" ), w0 ? "the default route leaves by it" : "" ) << what;
         EXPECT_EQ( why( "v1" ), "" ) << what;
         ip( unset );
      }
   }
}

TEST_F( LinkGuards, keepTheLinkOfTheSession ) {
   ip( "route add 192.0.2.0/24 via 10.1.0.2\nroute add unreachable 198.51.100.0/24" );
   for( char const * session : { "10.1.0.9", "192.0.2.7", "::ffff:192.0.2.7", "2001:db8:1::9", "fe80::1%v0" } ) {
      EXPECT_EQ( why( "v0", session ), "the session from " + std::string( session ) + " comes by it" );
      EXPECT_EQ( why( "w0", session ), "" ) << session;
   }
   for( char const * none : { "203.0.113.1", "198.51.100.1", "10.1.0.1", "127.0.0.1", "::1", "fe80::1",
                              "fe80::1%nosuch", "not an address", "192.0.2.7.", "" } ) {
      EXPECT_EQ( why( "v0", none ), "" ) << none;
   }
}

TEST_F( LinkGuards, keepWhatCarriesThoseLinks ) {
   ip( "address flush dev v0\nlink set v0 master br0\nlink set w1 master br0\naddress add 10.1.0.1/24 dev br0\n"
       "route add default via 10.1.0.2" );
   guard();
   EXPECT_EQ( why( "br0" ), "the default route leaves by it" );
   for( char const * port : { "v0", "w1" } )
      EXPECT_EQ( why( port ), "the default route leaves by br0, which it carries" );
   EXPECT_EQ( why( "v1" ) + why( "w0" ), "" ) << "a peer carries nothing";
   EXPECT_EQ( why( "v0", "10.1.0.9" ), "the default route leaves by br0, which it carries" );
   ip( "route del default" );
   EXPECT_EQ( why( "v0", "10.1.0.9" ), "the session from 10.1.0.9 comes by br0, which it carries" );
   // A link above a link.
   ip( "link add name mv0 link w0 type macvlan\nlink set mv0 up\naddress add 10.3.0.1/24 dev mv0\n"
       "route add default via 10.3.0.2" );
   guard();
   EXPECT_EQ( why( "w0" ), "the default route leaves by mv0, which it carries" );
}

// A VLAN link above a VLAN-aware bridge does not need the ports of other VLANs. The links are told by hand: the route
// is that of a real link of the same index.
TEST_F( LinkGuards, keepOnlyThosePortsOfABridgeThatCarryTheVlan ) {
   ip( "route add default via 10.1.0.2" );
   int const v0 = static_cast<int>( ask( "link show dev v0" )[0].at( "ifindex" ).as_int64() );
   Linux::LinkTable table( nobody_ );
   LinkGuard guard( table );
   auto const hear = [&table]( LinkMessage const & message ) { EXPECT_EQ( table.handle( message.bytes() ), 0 ); };
   auto const link = [&hear]( int index, std::string const & name, unsigned master = 0 ) {
      hear( LinkMessage( RTM_NEWLINK, index ).named( name ).operState( IF_OPER_UP ).number( IFLA_MASTER, master ) );
   };
   table.askedIs( Linux::LinkTable::Missing::links );
   hear( LinkMessage( RTM_NEWLINK, v0 )
            .named( "vlan20" )
            .operState( IF_OPER_UP )
            .number( IFLA_LINK, 900 )
            .vlan( "vlan", 20 ) );
   hear( LinkMessage( RTM_NEWLINK, 900 )
            .named( "bridge" )
            .operState( IF_OPER_UP )
            .kind( "bridge", IFLA_BR_VLAN_FILTERING, std::uint8_t{ 1 } ) );
   hear( LinkMessage( RTM_NEWLINK, 903 )
            .named( "bond" )
            .operState( IF_OPER_UP )
            .number( IFLA_MASTER, 900 )
            .kind( "bond" ) );
   link( 901, "carries", 900 );
   link( 902, "does-not", 900 );
   link( 904, "member", 903 );
   hear( LinkMessage::end() );
   table.askedIs( Linux::LinkTable::Missing::vlans );
   hear( LinkMessage::vlans( RTM_NEWVLAN, 901, 20, 20 ) );
   hear( LinkMessage::vlans( RTM_NEWVLAN, 902, 21, 30 ) );
   hear( LinkMessage::vlans( RTM_NEWVLAN, 903, 1, 30 ) );
   hear( LinkMessage::end() );
   for( char const * name : { "bridge", "carries", "bond", "member" } ) {
      EXPECT_EQ( guard.protectedBy( IntfId( name ), "" ), "the default route leaves by vlan20, which it carries" )
         << name;
   }
   EXPECT_EQ( guard.protectedBy( IntfId( "does-not" ), "" ), "" );
   using ::testing::ElementsAre;
   using ::testing::Pair;
   EXPECT_THAT( guard.ipv6Losses(), ElementsAre( Pair( IntfId( "bridge" ), ElementsAre( "vlan20" ) ),
                                                 Pair( IntfId( "vlan20" ), ElementsAre( "vlan20" ) ) ) )
      << "it goes down with what it stands on";
}

TEST_F( LinkGuards, nameTheLinksWhoseAddressesTheKernelFlushes ) {
   using ::testing::ElementsAre;
   using ::testing::Pair;
   using ::testing::UnorderedElementsAre;
   auto const keep = []( std::string const & link, int value ) {
      std::ofstream( "/proc/sys/net/ipv6/conf/" + link + "/keep_addr_on_down" ) << value;
   };
   auto const losing = []( char const * name ) { return Pair( IntfId( name ), ElementsAre( name ) ); };
   // What a router announces comes back by itself; link-local addresses always do.
   ip( "address add 2001:db8:3::1/64 dev v1 valid_lft 600 preferred_lft 600" );
   EXPECT_THAT( guard_->ipv6Losses(), UnorderedElementsAre( losing( "v0" ), losing( "w0" ) ) );
   keep( "v0", 1 );
   EXPECT_THAT( guard_->ipv6Losses(), UnorderedElementsAre( losing( "w0" ) ) );
   keep( "all", -1 );
   EXPECT_THAT( guard_->ipv6Losses(), UnorderedElementsAre( losing( "v0" ), losing( "w0" ) ) );
   keep( "all", 1 );
   EXPECT_THAT( guard_->ipv6Losses(), ElementsAre() );
   keep( "all", 0 );
   ip( "link set v0 down\nlink set w0 down" );
   EXPECT_EQ( ask( "-6 address show dev v0 scope global" ).size(), 1u );
   EXPECT_EQ( ask( "-6 address show dev w0 scope global" ).size(), 0u ) << "or the kernel has it otherwise";
}

}  // namespace
}  // namespace Host
