// Links that are switched: what is said of them is the kernel's word of this moment, and no other link is ever touched.
#include <fstream>

#include "control/KernelLinks.h"
#include "net/PrivateNetwork.h"

namespace Host {
namespace {

using Lumo::IntfId;
using Service::LinkSwitch;

class SwitchedLinks : public PrivateNetwork {
 protected:
   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( PrivateNetwork::SetUp() );
      ip( "link add name v0 type veth peer name v1\nlink set v1 up" );
      std::ofstream( "/proc/sys/net/ipv6/conf/v0/disable_ipv6" ) << 0;
      links_.emplace();
   }

   static int indexOf( std::string const & name ) {
      return static_cast<int>( ask( "link show dev " + name )[0].at( "ifindex" ).as_int64() );
   }
   static bool adminUp( std::string const & name ) {
      auto const flags = ask( "link show dev " + name )[0].at( "flags" ).as_array();
      return std::ranges::find( flags, boost::json::value( "UP" ) ) != flags.end();
   }
   std::optional<LinkSwitch::Link> link( char const * name ) const { return links_->link( IntfId( name ) ); }
   std::optional<LinkSwitch::Link> known( char const * name, bool up ) const {
      return LinkSwitch::Link{ .index = indexOf( name ), .adminUp = up };
   }

   std::optional<KernelLinks> links_;  // made in the private network
};

TEST_F( SwitchedLinks, areSetUpAndDownWithoutAnythingElse ) {
   ip( "link set v0 mtu 1400\naddress add 10.9.0.1/24 dev v0" );
   int const v0 = indexOf( "v0" );
   EXPECT_EQ( link( "v0" ), known( "v0", false ) );
   for( bool const up : { true, true, false, false, true } ) {
      EXPECT_EQ( links_->adminUpIs( v0, up ), "" );
      EXPECT_EQ( adminUp( "v0" ), up );
      EXPECT_EQ( links_->link( v0 ), known( "v0", up ) );
   }
   EXPECT_TRUE( adminUp( "v1" ) );
   auto const shown = ask( "-4 address show dev v0" )[0];
   EXPECT_EQ( shown.at( "mtu" ).as_int64(), 1400 );
   EXPECT_EQ( shown.at( "addr_info" ).as_array().size(), 1u );
}

TEST_F( SwitchedLinks, areFoundByTheirNameOfNowAndNoOther ) {
   ip( "link property add dev v0 altname other\nlink set v1 name some.very.long1" );
   EXPECT_EQ( link( "some.very.long1" ), known( "some.very.long1", true ) );
   for( char const * none : { "v1", "other", "nosuch", "some.very.long10", "" } ) EXPECT_FALSE( link( none ) ) << none;
   int const gone = indexOf( "v0" );
   ip( "link del v0\nlink add name v0 type veth peer name v1" );
   EXPECT_FALSE( links_->link( gone ) );
   EXPECT_EQ( link( "v0" ), known( "v0", false ) ) << "another link under the name";
}

TEST_F( SwitchedLinks, thatCannotBeSwitchedSayWhy ) {
   ip( "link set lo up" );
   EXPECT_EQ( links_->adminUpIs( indexOf( "lo" ), false ), "lo is the loopback, which is never taken down" );
   EXPECT_TRUE( adminUp( "lo" ) );
   EXPECT_EQ( links_->adminUpIs( 4711, true ), "setting link 4711 up: No such device" );
   EXPECT_EQ( links_->adminUpIs( 4711, false ), "setting link 4711 down: No such device" );
   EXPECT_EQ( links_->keepAddrOnDownIs( 4711, 1 ),
              "setting keep_addr_on_down of link 4711: No such file or directory" );
   EXPECT_FALSE( links_->keepAddrOnDown( 4711 ) );
   EXPECT_EQ( links_->adminUpIs( indexOf( "v0" ), true ), "" ) << "a refusal spoils nothing";
}

TEST_F( SwitchedLinks, keepTheirIpv6AddressesWhenTold ) {
   ip( "link set v0 name v0.1\naddress add 2001:db8::1/64 dev v0.1 nodad" );
   int const v0 = indexOf( "v0.1" );
   EXPECT_EQ( links_->keepAddrOnDown( v0 ), 0 );
   EXPECT_EQ( links_->keepAddrOnDownIs( v0, 1 ), "" );
   EXPECT_EQ( links_->keepAddrOnDown( v0 ), 1 );
   EXPECT_EQ( links_->keepAddrOnDown( indexOf( "v1" ) ), 0 );
   auto const globals = [] { return ask( "-6 address show dev v0.1 scope global" ).size(); };
   EXPECT_EQ( links_->adminUpIs( v0, true ) + links_->adminUpIs( v0, false ) + links_->adminUpIs( v0, true ), "" );
   EXPECT_EQ( globals(), 1u );
   EXPECT_EQ( links_->keepAddrOnDownIs( v0, 0 ), "" );
   EXPECT_EQ( links_->adminUpIs( v0, false ), "" );
   EXPECT_EQ( globals(), 0u ) << "or the test proves nothing";
}

// A link of such a name has no settings of its own, and no IPv6: what stands there is everybody's.
TEST_F( SwitchedLinks, namedLikeTheSettingsOfAllLeaveThoseAlone ) {
   ip( "link set v0 mtu 1000" );
   std::string former = "v0";
   for( std::string const name : { "all", "default" } ) {
      ip( "link set " + former + " name " + name );
      EXPECT_FALSE( links_->keepAddrOnDown( indexOf( name ) ) );
      EXPECT_NE( links_->keepAddrOnDownIs( indexOf( name ), 1 ), "" );
      int value = -1;
      std::ifstream( "/proc/sys/net/ipv6/conf/" + name + "/keep_addr_on_down" ) >> value;
      EXPECT_EQ( value, 0 );
      former = name;
   }
}

}  // namespace
}  // namespace Host
