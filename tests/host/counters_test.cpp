// The counters of the box's links: the kernel's figures in one read, and published figures that never go backward.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "StatsFaults.h"
#include "feed/CounterFeed.h"
#include "feed/LinkWatch.h"
#include "linux/MonotonicCounter.h"
#include "linux/StatsReader.h"
#include "net/PrivateNetwork.h"

namespace Host::Linux {
namespace {

TEST( MonotonicCounter, goesOnFromWhereItStood ) {
   constexpr std::uint64_t top = std::numeric_limits<std::int64_t>::max();
   struct Case {
      std::string what;
      std::vector<Octets> raw;
      Octets published;  // after the last
      int restarts;
   };
   std::vector<Case> const cases{
      { "the first reading is published as it is", { { 500, 7 } }, { 500, 7 }, 0 },
      { "a device at rest did not restart", { { 500, 7 }, { 500, 7 } }, { 500, 7 }, 0 },
      { "one less is a restart", { { 500, 7 }, { 499, 7 } }, { 999, 14 }, 1 },
      { "restart of both", { { 500, 70 }, { 3, 2 } }, { 503, 72 }, 1 },
      { "restart to nothing", { { 500, 70 }, { 0, 0 } }, { 500, 70 }, 1 },
      { "out has overtaken its last reading since", { { 500, 7 }, { 3, 90 } }, { 503, 97 }, 1 },
      { "in has overtaken its last reading since", { { 7, 500 }, { 90, 3 } }, { 97, 503 }, 1 },
      { "two restarts", { { 500, 50 }, { 3, 2 }, { 1, 1 }, { 4, 1 } }, { 507, 53 }, 2 },
      { "the highest", { { top, 1 } }, { top, 1 }, 0 },
      { "no sum is above the highest", { { top, 1 }, { 1, 1 } }, { top, 1 }, 0 },
      { "a driver's -1 is no counter", { { 5, 5 }, { ~0ull, 6 }, { 6, ~0ull }, { 6, 7 } }, { 6, 7 }, 0 },
      { "nor is it after a restart", { { 5, 5 }, { 1, 1 }, { ~0ull, 2 }, { 1, 3 } }, { 6, 8 }, 1 },
   };
   for( auto const & [what, raw, published, restarts] : cases ) {
      MonotonicCounter counter;
      Octets before;
      int restartsSeen = 0;
      for( auto const & reading : raw ) {
         auto const now = counter.value( reading );
         if( !now ) continue;
         EXPECT_TRUE( now->octets.in >= before.in && now->octets.out >= before.out ) << what << ": went backward";
         before = now->octets;
         restartsSeen += now->restarted;
      }
      EXPECT_EQ( before, published ) << what << ": " << before.in << ", " << before.out;
      EXPECT_EQ( restartsSeen, restarts ) << what;
   }
}

// From the bytes of a message whose attributes have these types and sizes, each byte of them its place.
std::optional<LinkOctets> parsed( std::vector<std::pair<std::uint16_t, std::size_t>> const & attributes,
                                  std::size_t bodyBytes = sizeof( if_stats_msg ) ) {
   alignas( nlmsghdr ) std::array<std::uint8_t, 1024> room{};
   nlmsghdr & header = *mnl_nlmsg_put_header( room.data() );
   static_cast<if_stats_msg *>( mnl_nlmsg_put_extra_header( &header, sizeof( if_stats_msg ) ) )->ifindex = 7;
   header.nlmsg_len = static_cast<std::uint32_t>( NLMSG_HDRLEN + bodyBytes );
   std::array<std::uint8_t, 256> places;
   std::iota( places.begin(), places.end(), std::uint8_t{} );
   for( auto const & [type, bytes] : attributes ) mnl_attr_put( &header, type, bytes, places.data() );
   return parseStats( header );
}

TEST( StatsMessage, saysWhatALinkHasCountedOrNothing ) {
   constexpr Octets found{ 0x1716151413121110, 0x1f1e1d1c1b1a1918 };
   for( std::size_t bytes : { sizeof( rtnl_link_stats64 ), std::size_t{ 240 }, std::size_t{ 32 } } ) {
      auto const link = parsed( { { IFLA_STATS_LINK_64, bytes } } );
      ASSERT_TRUE( link ) << bytes;
      EXPECT_EQ( link->index, 7 );
      EXPECT_EQ( link->octets, found ) << bytes;
   }
   auto const behind = parsed( { { IFLA_STATS_AF_SPEC, 5 }, { IFLA_STATS_LINK_64, 200 } } );
   EXPECT_EQ( behind.value().octets, found ) << "behind another attribute";
   EXPECT_FALSE( parsed( { { IFLA_STATS_LINK_64, 31 } } ) ) << "half a counter";
   EXPECT_FALSE( parsed( { { IFLA_STATS_LINK_XSTATS, 200 } } ) );
   EXPECT_FALSE( parsed( {} ) );
   EXPECT_FALSE( parsed( {}, sizeof( if_stats_msg ) - 4 ) );
}

// Whatever the lists, each link is the one that its index says; what is listed as before is not looked for.
TEST( ListedLinks, areFoundAnewOnlyFromWhereAListHasChanged ) {
   auto const seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   ListedLinks listed;
   std::vector<int> list, before;
   for( int round = 0; round < 500; ++round ) {
      if( !list.empty() && random() % 3 == 0 ) list.erase( list.begin() + static_cast<int>( random() % list.size() ) );
      if( random() % 3 == 0 ) list.insert( list.begin() + static_cast<int>( random() % ( list.size() + 1 ) ), round );
      auto const same = static_cast<std::size_t>( std::ranges::mismatch( list, before ).in1 - list.begin() );
      std::size_t looked = 0;
      listed.begin();
      for( int index : list ) {
         listed.add( index, { static_cast<std::uint64_t>( round ), 0 }, [&]( int i ) {
            ++looked;
            return ListedLinks::Link{ i, static_cast<uint32_t>( i ), {}, {} };
         } );
      }
      ASSERT_EQ( listed.links().size(), list.size() );
      for( std::size_t i = 0; i < list.size(); ++i ) {
         ASSERT_EQ( listed.links()[i].row, static_cast<uint32_t>( list[i] ) );
         ASSERT_EQ( listed.links()[i].counted.in, static_cast<std::uint64_t>( round ) );
      }
      EXPECT_LE( looked, list.size() - same );
      before = list;
   }
}

class Counters : public PrivateNetwork {
 protected:
   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( PrivateNetwork::SetUp() );
      makeLink();
      reader_.emplace();
   }

   // v0 and v1; what is sent to 10.9.0.2 leaves by v0 and arrives at v1.
   static void makeLink() {
      ip( "link add name v0 type veth peer name v1\nlink set v0 up\nlink set v1 up\naddress add 10.9.0.1/24 dev v0\n"
          "neighbour add 10.9.0.2 lladdr 02:00:00:00:00:01 dev v0 nud permanent" );
   }

   // So many that the kernel answers in several parts.
   static void makeManyLinks() {
      std::string lines;
      for( int i = 0; i < 150; ++i ) lines += "link add name x" + std::to_string( i ) + " type veth\n";
      ip( lines );
   }

   // Returns the octets of the frames, without preamble and checksum as the kernel counts.
   static std::uint64_t send( std::uint64_t datagrams, std::uint64_t payload ) {
      constexpr std::uint64_t headers = 14 + 20 + 8;  // Ethernet, IPv4, UDP
      int const socket = ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_port = htons( 9 );
      inet_pton( AF_INET, "10.9.0.2", &to.sin_addr );
      std::string const text( payload, 'x' );
      for( std::uint64_t i = 0; i < datagrams; ++i ) {
         EXPECT_EQ( sendto( socket, text.data(), payload, 0, reinterpret_cast<sockaddr *>( &to ), sizeof to ),
                    static_cast<ssize_t>( payload ) );
      }
      close( socket );
      return datagrams * ( payload + headers );
   }

   std::map<int, Octets> readAll() {
      std::map<int, Octets> rows;
      reader_->read( [&]( int index, Octets const & octets ) {
         EXPECT_TRUE( rows.emplace( index, octets ).second ) << "twice: " << index;
      } );
      return rows;
   }

   // What iproute2 shows.
   static std::map<int, Octets> shown() {
      std::map<int, Octets> rows;
      for( auto const & link : ask( "-statistics link" ) ) {
         auto const & stats = link.at( "stats64" );
         rows[static_cast<int>( link.at( "ifindex" ).as_int64() )] = {
            stats.at( "rx" ).at( "bytes" ).to_number<std::uint64_t>(),
            stats.at( "tx" ).at( "bytes" ).to_number<std::uint64_t>() };
      }
      return rows;
   }

   static int indexOf( std::string const & name ) {
      return static_cast<int>( ask( "link show dev " + name )[0].at( "ifindex" ).as_int64() );
   }

   std::optional<StatsReader> reader_;  // made in the private network
};

TEST_F( Counters, equalWhatTheKernelShowsAndWhatWasSent ) {
   auto const before = readAll();
   std::uint64_t const octets = send( 25, 1000 ) + send( 5, 1 );
   auto const after = readAll();
   EXPECT_EQ( after, shown() );
   int const sender = indexOf( "v0" );
   int const receiver = indexOf( "v1" );
   EXPECT_EQ( after.at( sender ).out - before.at( sender ).out, octets );
   EXPECT_EQ( after.at( receiver ).in - before.at( receiver ).in, octets );
   EXPECT_EQ( after.at( sender ).in, before.at( sender ).in );
}

TEST_F( Counters, ofManyLinksComeInOneReadOnceEach ) {
   makeManyLinks();
   send( 3, 100 );
   EXPECT_EQ( reader_->reads(), 0u );
   EXPECT_EQ( readAll(), shown() );
   EXPECT_EQ( reader_->reads(), 1u );
}

TEST_F( Counters, ofADeviceMadeAgainGoOn ) {
   MonotonicCounter published;
   auto const read = [&] { return published.value( readAll().at( indexOf( "v0" ) ) ).value().octets; };
   Octets const start = read();
   std::uint64_t const first = send( 20, 1000 );
   EXPECT_EQ( read().out, start.out + first );
   send( 7, 1000 );  // nobody reads these before the device is gone
   ip( "link del v0" );
   makeLink();
   std::uint64_t const second = send( 5, 1000 );
   EXPECT_EQ( read().out, start.out + first + second );
}

TEST_F( Counters, areReadAgainAfterAReadThatFailed ) {
   struct Refused {};
   makeManyLinks();
   EXPECT_THROW( reader_->read( []( int, Octets const & ) { throw Refused(); } ), Refused );
   send( 3, 100 );
   EXPECT_EQ( readAll(), shown() );
}

// The rows of the counter table, fed from the links of a private network.
class Feed : public Counters {
 protected:
   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( Counters::SetUp() );
      Tell const tell = [this]( std::string const & text, bool ) { told_.push_back( text ); };
      watch_.emplace( links_, tell );
      feed_.emplace( links_, writer_, tell );
      loop_.turn( [&] { watch_->monitor().start(); } );
   }
   ~Feed() override { Faults::statsFaults() = {}; }

   // A turn in which the links' changes are heard, unless they come too late for it, and the counters are read.
   void refreshAt( double time, bool linksHeard = true ) {
      loop_.runUntil( *clock_, time );
      loop_.turn( [&] {
         if( linksHeard ) watch_->monitor().handleReadable();
         feed_->refresh( KelQuill::Rows::all );
      } );
   }
   KelQuill::CounterTable::LastRead row( std::string const & name ) const {
      for( uint32_t i = 0; i < writer_.table().rows(); ++i ) {
         auto const entry = writer_.table().entry( i );
         if( entry && entry->name == name ) return entry->counters;
      }
      throw std::runtime_error( "no row of " + name );
   }
   double readTime( std::string const & name ) const { return row( name ).readTime; }
   std::uint64_t sent() const { return row( "v0" ).outOctets.value(); }

   Kel::Ptr<Kel::VirtualClock> const clock_ = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop_{ clock_ };
   Kel::Ptr<Dovra::EntityManager> const database_ = new Dovra::EntityManager;
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Service::LinkRecords records_{ state_ };
   std::vector<std::string> told_;
   LinkFeed links_{ records_, writer_, [this]( std::string const & text, bool ) { told_.push_back( text ); } };
   std::optional<LinkWatch> watch_;  // these two are made in the private network
   std::optional<CounterFeed> feed_;
};

TEST_F( Feed, aReadThatFailsMovesNothing ) {
   makeManyLinks();
   refreshAt( 1010 );
   auto const before = row( "v0" );
   std::uint64_t const octets = send( 20, 1000 );
   auto const expectUnmoved = [&]( char const * what ) {
      for( char const * link : { "lo", "v0", "x0", "x149" } ) EXPECT_EQ( readTime( link ), 1010 ) << what << link;
      EXPECT_EQ( sent(), before.outOctets.value() ) << what;
   };
   Faults::statsFaults().requestFails = [] { return true; };
   refreshAt( 1020 );
   expectUnmoved( "the request: " );
   Faults::statsFaults().requestFails = {};
   Faults::statsFaults().failingPart = 2;  // the links in the first came through
   refreshAt( 1030 );
   expectUnmoved( "half way: " );
   Faults::statsFaults().failingPart = 0;
   refreshAt( 1040 );
   EXPECT_EQ( readTime( "v0" ), 1040 );
   EXPECT_EQ( readTime( "x149" ), 1040 );
   EXPECT_EQ( sent(), before.outOctets.value() + octets );
   EXPECT_EQ( row( "v0" ).restarts, before.restarts );
}

TEST_F( Feed, aLinkThatAnInterruptedAnswerPassedByKeepsItsTime ) {
   refreshAt( 1010 );
   Faults::statsFaults().passedBy = indexOf( "v0" );
   Faults::statsFaults().interruptedAnswers = 1;
   refreshAt( 1020 );
   EXPECT_EQ( readTime( "v0" ), 1020 );  // the kernel was asked again
   auto const before = sent();
   std::uint64_t const octets = send( 5, 1000 );
   Faults::statsFaults().interruptedAnswers = 1000;
   refreshAt( 1030 );
   EXPECT_EQ( readTime( "v0" ), 1020 );
   EXPECT_EQ( readTime( "v1" ), 1030 );
   EXPECT_EQ( sent(), before );
   Faults::statsFaults().interruptedAnswers = 0;
   refreshAt( 1040 );
   EXPECT_EQ( readTime( "v0" ), 1040 );
   EXPECT_EQ( sent(), before + octets );
}

TEST_F( Feed, aLinkThatIsNotToldOfYetHasNoTime ) {
   ip( "link add name late type veth" );
   loop_.turn( [&] { watch_->monitor().handleReadable(); } );
   EXPECT_EQ( readTime( "late" ), 0 );
   refreshAt( 1010 );
   EXPECT_EQ( readTime( "late" ), 1010 );
   ip( "link del late\nlink add name late type veth" );
   refreshAt( 1020, false );  // another device answers by now
   EXPECT_EQ( readTime( "late" ), 1010 );
   EXPECT_EQ( row( "late" ).restarts, 0u );
   refreshAt( 1030 );
   EXPECT_EQ( readTime( "late" ), 1030 );
   EXPECT_EQ( row( "late" ).restarts, 1u );
}

// Every link counts its index as its input, so that a row filled from another link shows.
TEST_F( Feed, rowsThatChangeHandsAreFilledFromTheirOwnLinks ) {
   Faults::statsFaults().counts = []( int index, std::uint64_t & in, std::uint64_t & ) {
      in = static_cast<std::uint64_t>( index );
   };
   double time = 1000;
   auto const expectOwnAfter = [&]( std::string const & lines, std::set<std::string> const & names ) {
      ip( lines );
      refreshAt( time += 10, false );  // listed in another order by now, or under another name
      refreshAt( time += 10 );
      for( auto const & name : names ) {
         EXPECT_EQ( row( name ).inOctets, static_cast<std::uint64_t>( indexOf( name ) ) ) << name << " after " << lines;
         EXPECT_EQ( row( name ).restarts, 0u ) << name << " after " << lines;
      }
   };
   expectOwnAfter( "link add name a1 type veth peer name a2", { "a1", "a2", "v0", "v1" } );
   expectOwnAfter( "link del a1\nlink add name b1 type veth peer name b2", { "b1", "b2", "v0", "v1" } );
   expectOwnAfter( "link set b1 name c1\nlink set v1 down\nlink set v1 name c2", { "b2", "c1", "c2", "v0" } );
   EXPECT_EQ( writer_.table().rows(), 5u );  // they did change hands
}

TEST_F( Feed, aLinkListedTwiceThatHasStartedAgainCountsAllOfIt ) {
   std::deque<std::uint64_t> counted;
   Faults::statsFaults().counts = [&, v0 = indexOf( "v0" )]( int index, std::uint64_t &, std::uint64_t & out ) {
      if( index != v0 ) return;
      out = counted.front();
      counted.pop_front();
   };
   auto const sentAfter = [&]( double time, std::deque<std::uint64_t> const & countedByThen ) {
      counted = countedByThen;
      Faults::statsFaults().interruptedAnswers = static_cast<int>( counted.size() ) - 1;
      refreshAt( time );
      return sent();
   };
   EXPECT_EQ( sentAfter( 1010, { 1000 } ), 1000u );
   EXPECT_EQ( sentAfter( 1020, { 10, 2000 } ), 3000u );
   EXPECT_EQ( row( "v0" ).restarts, 1u );
   EXPECT_EQ( sentAfter( 1030, { 5000 } ), 6000u );
   EXPECT_EQ( row( "v0" ).restarts, 1u );
}

TEST_F( Feed, aLinkMadeAgainIsMarkedAlsoWhenItHasCountedMoreThanBefore ) {
   send( 1, 1000 );
   refreshAt( 1010 );
   EXPECT_EQ( row( "v0" ).restarts, 0u );
   for( std::uint64_t made : { 1u, 2u } ) {
      auto const before = sent();
      ip( "link del v0" );
      makeLink();
      send( made == 1 ? 30 : 2, 1000 );
      refreshAt( 1010 + 10.0 * static_cast<double>( made ) );
      EXPECT_EQ( row( "v0" ).restarts, made );
      EXPECT_GT( sent(), before );
   }
   // Twice more, and nobody reads the first of them.
   auto const before = sent();
   for( int i = 0; i < 2; ++i ) {
      ip( "link del v0" );
      makeLink();
      loop_.turn( [&] { watch_->monitor().handleReadable(); } );
   }
   refreshAt( 1040 );
   EXPECT_EQ( row( "v0" ).restarts, 4u );
   EXPECT_GE( sent(), before );
}

}  // namespace
}  // namespace Host::Linux
