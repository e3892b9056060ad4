// Bonds, teams, VLANs and bridges as maintd publishes them, and a bond through maintenance: on Debian's stock kernel,
// whatever the kernel of the machine has.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>

#include "Box.h"

namespace Test {

using ::testing::AllOf;
using ::testing::HasSubstr;

namespace {

std::string config( std::string const & interfaces, std::string const & profile = "" ) {
   return "profiles:\n  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 3s" + profile +
          " }\ndefault-profile: quick\ngroups:\n  g: { interfaces: [" + interfaces +
          "] }\n  odd: { interfaces: [br0, p3.40] }\nunits:\n  fabric: { groups: [g] }\n  odd: { groups: [odd] }\n";
}

}  // namespace

class Kinds : public Box {
 protected:
   using Names = std::vector<std::string>;

   // Links of these names, up, each with another one at its far end.
   static void ports( Names const & names ) {
      for( std::string const & name : names ) {
         ip( "link add " + name + " type veth peer name far" + name + "\nlink set far" + name + " up\nlink set " +
             name + " up" );
      }
   }
   // A trunk takes no member that is up.
   static void join( std::string const & member, std::string const & trunk ) {
      ip( "link set " + member + " down\nlink set " + member + " master " + trunk + "\nlink set " + member + " up" );
   }

   [[nodiscard]] boost::json::value get( std::string const & path ) const {
      auto const answer = maintctl( { "get", path } );
      return answer.status == 0 ? boost::json::parse( answer.out ) : boost::json::value();
   }
   // What the port-channel is published to consist of.
   [[nodiscard]] Names membersOf( std::string const & trunk ) const {
      Names members;
      auto const ports = get( "lag/config/phyIntf" );
      for( auto const & [name, port] : ports.as_object() ) {
         if( port.at( "lag" ).as_string() == trunk ) members.emplace_back( name );
      }
      std::ranges::sort( members );
      return members;
   }
   // The same of a VLAN; "none" alone when there is no such VLAN.
   [[nodiscard]] Names carriersOf( std::string const & vlan ) const {
      auto const status = get( "bridging/vlan/status/vlanStatus/" + vlan );
      if( !status.is_object() ) return { "none" };
      Names carriers;
      for( auto const & [name, there] : status.at( "intf" ).as_object() ) carriers.emplace_back( name );
      std::ranges::sort( carriers );
      return carriers;
   }
   void expectMembers( std::string const & trunk, Names const & expected ) const {
      EXPECT_TRUE( eventually( [&] { return membersOf( trunk ) == expected; } ) )
         << trunk << " has " << ::testing::PrintToString( membersOf( trunk ) ) << ", not "
         << ::testing::PrintToString( expected );
   }
   void expectCarriers( std::string const & vlan, Names const & expected ) const {
      EXPECT_TRUE( eventually( [&] { return carriersOf( vlan ) == expected; } ) )
         << "VLAN " << vlan << " has " << ::testing::PrintToString( carriersOf( vlan ) ) << ", not "
         << ::testing::PrintToString( expected );
   }
};

TEST_F( Kinds, aTrunkIsMadeOfItsMembersAsTheyComeAndGo ) {
   ports( { "m1", "m2", "m3" } );
   ip( "link add t1 type bond mode balance-rr\nlink add t2 type team\nlink set t1 up\nlink set t2 up" );
   join( "m1", "t1" );
   join( "m2", "t2" );
   startMaintd( config( "t1, t2" ) );
   expectMembers( "t1", { "m1" } );
   expectMembers( "t2", { "m2" } );
   join( "m3", "t2" );
   expectMembers( "t2", { "m2", "m3" } );
   join( "m3", "t1" );
   expectMembers( "t1", { "m1", "m3" } );
   expectMembers( "t2", { "m2" } );
   ip( "link set m1 down\nlink set m1 name n1\nlink set n1 up" );
   expectMembers( "t1", { "m3", "n1" } );
   ip( "link set t1 down\nlink set t1 name t9\nlink set t9 up" );
   expectMembers( "t9", { "m3", "n1" } );
   expectMembers( "t1", {} );
   ip( "link set m3 nomaster\nlink delete n1" );
   expectMembers( "t9", {} );
   // A plain link under the name that a trunk had is a link of its own.
   ip( "link delete t2" );
   ports( { "t2" } );
   expectMembers( "t2", {} );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--without", "t1", "--wait", "--timeout", "20s" } ).status, 0 );
   EXPECT_EQ( text( account( "fabric", "t2" ), "verdict" ), "quiet" );
}

TEST_F( Kinds, aVlanIsMadeOfThePortsThatCarryIt ) {
   ports( { "p1", "p2", "p3" } );
   ip( "link add br0 type bridge vlan_filtering 1\nlink set br0 up\nlink set p1 master br0\nlink set p2 master br0\n"
       "link add link br0 name v20 type vlan id 20\nlink set v20 up\n"
       "link add link p3 name v30 type vlan id 30\nlink set v30 up" );
   bridge( "vlan add dev p1 vid 20\nvlan add dev br0 vid 20 self" );
   startMaintd( config( "v20, v30" ) );
   expectCarriers( "20", { "p1" } );
   expectCarriers( "30", { "p3" } );
   bridge( "vlan add dev p2 vid 18-22" );
   expectCarriers( "20", { "p1", "p2" } );
   bridge( "vlan del dev p1 vid 20" );
   expectCarriers( "20", { "p2" } );
   ip( "link set p2 nomaster" );
   expectCarriers( "20", {} );
   ip( "link set p2 master br0" );
   bridge( "vlan add dev p2 vid 20" );
   expectCarriers( "20", { "p2" } );
   // A trunk as a port of the bridge is the one carrier that it is.
   ip( "link add t1 type bond mode balance-rr\nlink set t1 up" );
   join( "p1", "t1" );
   ip( "link set t1 master br0" );
   bridge( "vlan add dev t1 vid 20" );
   expectCarriers( "20", { "p2", "t1" } );
   expectMembers( "t1", { "p1" } );
   ip( "link delete v30" );
   expectCarriers( "30", { "none" } );

   // What is sent by the VLAN link leaves by the ports, which are what is sampled.
   ip( "address add 10.9.1.1/24 dev v20\nneighbour replace 10.9.1.2 lladdr 02:00:00:00:01:02 dev v20 nud permanent" );
   pid_t const sender = send( "v20", 1, 4e6 );
   ASSERT_EQ( maintctl( { "enter", "fabric", "--without", "v30" } ).status, 0 );
   EXPECT_TRUE( eventually( [&] { return text( account( "fabric", "v20" ), "verdict" ) == "loud"; } ) );
   stop( sender );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "30s" } ).status, 0 );
   EXPECT_EQ( text( account( "fabric", "v20" ), "verdict" ), "quiet" );

   // Nobody can sample these.
   ip( "link add link p3 name p3.40 type vlan id 40\nlink set p3.40 up" );
   EXPECT_TRUE( eventually( [&] { return text( shown( "p3.40" ), "operStatus" ) == "up"; } ) );
   auto const refused = maintctl( { "enter", "odd" } );
   EXPECT_EQ( refused.status, 4 );
   EXPECT_THAT( refused.err,
                AllOf( HasSubstr( "br0: it is of a kind" ), HasSubstr( "p3.40: it is a sub-interface" ) ) );
}

TEST_F( Kinds, aBondDrainsIsShutAsTheOneLinkThatItIsAndComesBackWithItsAddresses ) {
   ports( { "m1", "m2" } );
   ip( "link add t1 address 02:00:00:00:01:01 type bond mode balance-rr\nlink set t1 mtu 1400\nlink set t1 up" );
   join( "m1", "t1" );
   join( "m2", "t1" );
   std::ofstream( "/proc/sys/net/ipv6/conf/t1/disable_ipv6" ) << 0;
   ip( "address add 10.9.1.1/24 dev t1\naddress add fd00:9:1::1/64 dev t1 nodad\n"
       "neighbour replace 10.9.1.2 lladdr 02:00:00:00:01:02 dev t1 nud permanent" );
   auto const before = addresses( "t1" );
   ASSERT_EQ( before.size(), 2u );
   startMaintd( "preserve-ipv6: true\n" + config( "t1", ", shutdown: true" ) );
   pid_t const sender = send( "t1", 1, 4e6 );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   ASSERT_TRUE( eventually( [&] { return text( account( "fabric", "t1" ), "verdict" ) == "loud"; } ) );
   // Each member carries half of it.
   auto const rate = [&]( char const * link ) {
      auto const shownRate = shown( link ).at( "outBitsRate" );
      return shownRate.is_number() ? shownRate.to_number<double>() : 0.0;
   };
   EXPECT_TRUE( eventually( [&] { return std::abs( rate( "t1" ) - 4e6 ) < 0.2 * 4e6; } ) ) << rate( "t1" );
   EXPECT_TRUE( adminUp( "t1" ) );

   stop( sender );
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "30s" } ).status, 0 );
   EXPECT_EQ( text( account( "fabric", "t1" ), "verdict" ), "held" );
   EXPECT_FALSE( adminUp( "t1" ) );
   EXPECT_TRUE( adminUp( "m1" ) && adminUp( "m2" ) );

   ASSERT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "30s" } ).status, 0 );
   EXPECT_TRUE( eventually( [&] { return adminUp( "t1" ) && text( shown( "t1" ), "operStatus" ) == "up"; } ) );
   EXPECT_EQ( addresses( "t1" ), before );
   EXPECT_EQ( linkOf( "t1" ).at( "mtu" ).to_number<int>(), 1400 );
   expectMembers( "t1", { "m1", "m2" } );
}

}  // namespace Test
