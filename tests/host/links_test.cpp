// The picture of the box's links: what a message says, and that the reports lead to what the kernel has, also after
// losses.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "LinkMessage.h"
#include "StatsFaults.h"
#include "linux/LinkMonitor.h"
#include "net/PrivateNetwork.h"

namespace Host::Linux {
namespace {

TEST( Link, canCarryTrafficInTheseStatesOnly ) {
   struct Case {
      std::uint8_t operState;
      unsigned flags;
      Oper oper;
   };
   constexpr unsigned running = unsigned{ IFF_UP } | unsigned{ IFF_LOWER_UP };
   std::vector<Case> const cases{
      { IF_OPER_UP, running, Oper::up },
      { IF_OPER_UNKNOWN, running, Oper::up },  // loopback, dummy, tun
      { IF_OPER_UNKNOWN, IFF_UP, Oper::down },
      { IF_OPER_UNKNOWN, IFF_LOWER_UP, Oper::down },
      { IF_OPER_DOWN, running, Oper::down },
      { IF_OPER_NOTPRESENT, running, Oper::down },
      { IF_OPER_LOWERLAYERDOWN, running, Oper::down },
      { IF_OPER_TESTING, running, Oper::down },
      { IF_OPER_DORMANT, running, Oper::down },
   };
   for( auto const & [operState, flags, oper] : cases ) {
      auto const link = parseLink( LinkMessage( RTM_NEWLINK, 4, flags ).named( "x0" ).operState( operState ).header() );
      ASSERT_TRUE( link );
      EXPECT_EQ( link->oper, oper ) << int( operState ) << " with flags " << flags;
      EXPECT_EQ( link->adminUp, ( flags & IFF_UP ) != 0 );
   }
}

TEST( Link, readsWhereItBelongs ) {
   LinkMessage vlan( RTM_NEWLINK, 9, IFF_UP );
   vlan.named( "eth0.100" ).operState( IF_OPER_UP ).number( IFLA_LINK, 2 ).number( IFLA_MASTER, 7 ).vlan( "vlan", 100 );
   Link const expected{ .index = 9,
                        .name = "eth0.100",
                        .oper = Oper::up,
                        .adminUp = true,
                        .kind = "vlan",
                        .master = 7,
                        .parent = 2,
                        .vlanId = 100 };
   EXPECT_EQ( parseLink( vlan.header() ), expected );

   // Other kinds number their attributes differently.
   LinkMessage other( RTM_NEWLINK, 9 );
   EXPECT_EQ( parseLink( other.named( "x0" ).operState( IF_OPER_UP ).vlan( "bond", 100 ).header() )->vlanId, 0 );

   // The peer of a container's link lies in another namespace, where index 2 is some other link.
   LinkMessage outside( RTM_NEWLINK, 9 );
   outside.named( "x0" ).operState( IF_OPER_UP ).number( IFLA_LINK, 2 ).number( IFLA_LINK_NETNSID, 0 );
   EXPECT_EQ( parseLink( outside.header() )->parent, 0 );
}

TEST( Link, isNotReadFromWhatDoesNotDescribeIt ) {
   EXPECT_FALSE(
      parseLink( LinkMessage( RTM_NEWLINK, 4, 0, AF_BRIDGE ).named( "x0" ).operState( IF_OPER_UP ).header() ) );
   EXPECT_FALSE( parseLink( LinkMessage( RTM_NEWLINK, 4, IFF_UP ).named( "wlan0" ).header() ) ) << "a wireless event";
   EXPECT_FALSE( parseRemoval( LinkMessage( RTM_DELLINK, 4, 0, AF_BRIDGE ).header() ) ) << "it only left a bridge";
   EXPECT_EQ( parseRemoval( LinkMessage( RTM_DELLINK, 4 ).header() ), 4 );
}

class Links : public PrivateNetwork, public LinkListener, public TroubleListener {
 protected:
   using Picture = std::map<std::string, int>;  // name, index

   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( PrivateNetwork::SetUp() );
      ip( "link add name v0 type veth peer name v1" );
      monitor_.emplace( *this, *this );
   }

   // Starts, and forgets the reports of what exists.
   void start() {
      monitor_->start();
      reports_.clear();
   }

   // Does this, and returns everything reported until the last report reads `last`; at most 20 s.
   std::vector<std::string> reportsAfter( std::string const & lines, std::string const & last ) {
      reports_.clear();
      if( !lines.empty() ) ip( lines );
      auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
      while( ( reports_.empty() || reports_.back() != last ) && std::chrono::steady_clock::now() < deadline ) {
         pollfd readable{ monitor_->fd(), POLLIN, 0 };
         if( poll( &readable, 1, 100 ) > 0 ) monitor_->handleReadable();
      }
      return reports_;
   }

   // The last of them, which is `last` if it came.
   std::string lastReportAfter( std::string const & lines, std::string const & last ) {
      auto const reports = reportsAfter( lines, last );
      return reports.empty() ? "no report" : reports.back();
   }

   // The kernel's own picture.
   static Picture kernelLinks() {
      Picture links;
      for( auto const & link : ask( "link" ) ) {
         links.emplace( link.at( "ifname" ).as_string().c_str(), static_cast<int>( link.at( "ifindex" ).as_int64() ) );
      }
      return links;
   }

   // How many messages the kernel could not deliver to the monitor.
   [[nodiscard]] int dropped() const {
      sockaddr_nl address{};
      socklen_t size = sizeof address;
      getsockname( monitor_->fd(), reinterpret_cast<sockaddr *>( &address ), &size );
      std::ifstream table( "/proc/self/net/netlink" );
      std::string socket, groups, rmem, wmem, dump, locks, line;
      for( unsigned protocol = 0, port = 0, drops = 0; std::getline( table, line ); ) {
         std::istringstream row( line );
         row >> socket >> protocol >> port >> groups >> rmem >> wmem >> dump >> locks >> drops;
         if( row && protocol == NETLINK_ROUTE && port == address.nl_pid ) return static_cast<int>( drops );
      }
      return -1;
   }

   // From now on so many bytes of messages, with the kernel's own overhead, fill the monitor's queue.
   void queueBytesIs( int bytes ) const {
      ASSERT_EQ( setsockopt( monitor_->fd(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes ), 0 );
   }

   // Takes in everything that is pending, and holds what is known against the kernel.
   void expectTruth() {
      for( pollfd readable{ monitor_->fd(), POLLIN, 0 }; poll( &readable, 1, 0 ) > 0; ) monitor_->handleReadable();
      EXPECT_EQ( reported_, kernelLinks() ) << "of one who keys links by name";
      Picture known;
      for( auto const & [index, link] : monitor_->links() ) known.emplace( link.name, index );
      EXPECT_EQ( known, kernelLinks() );
   }

   std::optional<LinkMonitor> monitor_;
   std::vector<std::string> reports_;
   Picture reported_;  // kept by the reports alone, as a receiver would

   std::vector<std::string> troubles_;
   double pauseSeconds_ = 0;

 private:
   void onLink( Link const & link ) override {
      reports_.push_back( link.name + ( link.oper == Oper::up ? " up" : link.adminUp ? " waits" : " down" ) );
      reported_[link.name] = link.index;
      EXPECT_EQ( monitor_->links().at( link.index ), link );
   }
   void onLinkGone( Link const & link ) override {
      reports_.push_back( link.name + " gone" );
      EXPECT_EQ( reported_.erase( link.name ), 1u ) << link.name << " was not there";
   }
   void onVlans( int ) override {}
   void onSettled( LinkTable const & ) override {}
   void onTrouble( std::string const & text, double pauseSeconds ) override {
      troubles_.push_back( text );
      pauseSeconds_ = pauseSeconds;
   }
   void onRecovered() override { troubles_.emplace_back( "recovered" ); }
};

using Reports = std::vector<std::string>;

TEST_F( Links, areReportedAtTheStartAndDescribed ) {
   ip( "link add name br0 type bridge\nlink set v0 master br0\nlink set lo up" );
   monitor_->start();
   expectTruth();
   auto const of = [this]( std::string const & name ) { return monitor_->links().at( reported_.at( name ) ); };
   EXPECT_EQ( of( "v0" ).kind, "veth" );
   EXPECT_EQ( of( "v0" ).master, reported_["br0"] );
   EXPECT_EQ( of( "v1" ).parent, reported_["v0"] ) << "a veth link's peer";
   EXPECT_EQ( of( "lo" ).kind, "" );
   EXPECT_EQ( of( "lo" ).oper, Oper::up ) << "although its driver says unknown";
   EXPECT_EQ( of( "v0" ).oper, Oper::down );
}

TEST_F( Links, thatChangeAreReportedOnceEach ) {
   start();
   EXPECT_EQ( reportsAfter( "link set v0 up", "v0 waits" ), Reports{ "v0 waits" } ) << "its peer is down";
   auto const up = reportsAfter( "link set v1 up", "v0 up" );
   EXPECT_TRUE( std::ranges::count( up, "v0 up" ) == 1 && std::ranges::count( up, "v1 up" ) == 1 );
   EXPECT_EQ( lastReportAfter( "link set v1 mtu 1400\nlink set v0 down", "v1 waits" ), "v1 waits" );
   EXPECT_EQ( reportsAfter( "link set v0 name w0", "w0 down" ), ( Reports{ "v0 gone", "w0 down" } ) );
   auto const deleted = reportsAfter( "link del w0\nlink add name v0 type veth peer name v1", "v0 down" );
   EXPECT_EQ( std::ranges::count( deleted, "v1 gone" ), 1 );
   EXPECT_EQ( std::ranges::count( deleted, "v0 down" ), 1 );
   expectTruth();
}

TEST_F( Links, thatChangeBetweenSubscriptionAndDumpAreNeitherMissedNorInvented ) {
   ip( "link add name x0 type veth peer name x1\nlink del v0" );
   monitor_->start();
   EXPECT_EQ( std::ranges::count( reports_, "v0 gone" ), 0 ) << "it was never reported";
   EXPECT_EQ( std::ranges::count( reports_, "x0 down" ), 1 );
   expectTruth();
}

TEST_F( Links, thatLeaveABridgeStay ) {
   ip( "link add name br0 type bridge\nlink set v0 master br0" );
   start();
   EXPECT_EQ( reportsAfter( "link set v0 nomaster", "v0 down" ), Reports{ "v0 down" } );
   EXPECT_EQ( monitor_->links().at( reported_.at( "v0" ) ).master, 0 );
   expectTruth();
}

// The queue keeps the news of the first links, which are gone by then, and loses what follows.
TEST_F( Links, areRightAgainAfterLostMessages ) {
   start();
   queueBytesIs( 32 * 1024 );
   std::string many;
   for( int i = 0; i < 20; ++i ) many += "link add name x" + std::to_string( i ) + " type veth\n";
   for( int i = 0; i < 20; ++i ) many += "link del x" + std::to_string( i ) + "\n";
   ip( many + "link del v0\nlink add name v0 type veth peer name v1" );
   ASSERT_GT( dropped(), 0 );
   expectTruth();
   EXPECT_EQ( std::ranges::count( reports_, "x0 down" ), std::ranges::count( reports_, "x0 gone" ) );
   EXPECT_EQ( lastReportAfter( "link set v0 up", "v0 waits" ), "v0 waits" ) << "changes arrive as before";
}

TEST_F( Links, thatSwapNamesWhileMessagesAreLostAreBothKnown ) {
   ip( "link add name w0 type veth peer name w1" );
   start();
   queueBytesIs( 1 );  // the least there is
   std::string noise;
   for( int i = 0; i < 100; ++i ) noise += "link set v1 mtu " + std::to_string( 1000 + i ) + "\n";
   ip( noise + "link set v0 name tmp\nlink set w0 name v0\nlink set tmp name w0\nlink set w1 name u1" );
   ASSERT_GT( dropped(), 0 );
   expectTruth();
}

TEST_F( Links, thatDidNotChangeAreNotReportedAfterLostMessages ) {
   start();
   queueBytesIs( 1 );  // the least there is
   std::string noise;
   for( int i = 0; i < 100; ++i ) noise += "link set v1 mtu " + std::to_string( 1000 + i ) + "\n";
   ip( noise + "link set v0 up" );
   ASSERT_GT( dropped(), 0 );
   expectTruth();
   EXPECT_EQ( reports_, Reports{ "v0 waits" } );
}

// As many as the kernel takes, and as long: more than the reader has room for at first.
TEST_F( Links, withVeryManyNamesAreKnown ) {
   start();
   std::string names;
   for( int i = 0; i < 496; ++i ) {
      names += "link property add dev v0 altname " + std::to_string( 1000 + i ) + std::string( 123, 'a' ) + "\n";
   }
   ip( names + "link set v0 up" );
   expectTruth();
   EXPECT_EQ( reports_, Reports{ "v0 waits" } );
   monitor_.emplace( *this, *this );
   reported_.clear();
   monitor_->start();
   expectTruth();
}

TEST_F( Links, areAskedForAgainAfterAnErrorWithAPauseThatGrows ) {
   using Faults::statsFaults;
   start();
   ip( "link del v0\nlink add name v2 type veth" );
   statsFaults().linkRequestError = ENOMEM;
   queueBytesIs( 1 );
   std::string noise;
   for( int i = 0; i < 100; ++i ) noise += "link set v2 mtu " + std::to_string( 1000 + i ) + "\n";
   ip( noise );
   ASSERT_GT( dropped(), 0 );
   for( double const pause : { 1, 2, 4, 8, 16, 32, 60, 60 } ) {
      monitor_->handleReadable();
      monitor_->handleReadable();  // nothing is asked for before the pause is over
      EXPECT_EQ( pauseSeconds_, pause );
      if( pause == 4 ) statsFaults().linkRequestError = -EPERM;  // the kernel's own refusal
      monitor_->resume();
   }
   EXPECT_EQ( troubles_.size(), 9u );
   EXPECT_EQ( troubles_.front(), "the links cannot be read: Cannot allocate memory" );
   EXPECT_EQ( troubles_.back(), "the links cannot be read: Operation not permitted" );
   EXPECT_EQ( reported_.count( "v0" ), 1u ) << "what was known stands meanwhile";
   statsFaults() = {};
   monitor_->resume();
   expectTruth();
   EXPECT_EQ( troubles_.back(), "recovered" );
   EXPECT_EQ( lastReportAfter( "link set v2 up", "v2 waits" ), "v2 waits" );
   troubles_.clear();
   statsFaults().linkRequestError = ENOMEM;
   LinkMonitor( *this, *this ).start();
   EXPECT_EQ( pauseSeconds_, 1 );
   statsFaults() = {};
}

TEST_F( Links, endWithTheSocketOnly ) {
   start();
   close( monitor_->fd() );
   EXPECT_THROW( monitor_->handleReadable(), NetlinkError );
}

}  // namespace
}  // namespace Host::Linux
