// Links that maintd shuts, on real links with real packets: they come back as they were, whatever happened meanwhile.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Box.h"

namespace Test {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace {

std::string heldConfig( std::string const & interfaces, std::string const & shutdown = "true" ) {
   return "preserve-ipv6: true\nprofiles:\n  shut: { threshold: 100kbps, sample-interval: 1s, load-interval: 1s, "
          "shutdown: " +
          shutdown + " }\ndefault-profile: shut\ngroups:\n  g: { interfaces: [" + interfaces +
          "] }\nunits:\n  fabric: { groups: [g] }\n";
}
// Links are shut as soon as their unit is to leave service.
std::string atOnce( std::string const & interfaces ) { return heldConfig( interfaces, "true, max-delay: 0s" ); }

// What a start of the machine leaves: another identity of the boot.
std::string anotherBoot( std::string const & file ) {
   return "mount --bind " + file + " /proc/sys/kernel/random/boot_id";
}

}  // namespace

class Held : public Box {
 protected:
   void SetUp() override {
      Box::SetUp();
      link( "up1", 1 );
      link( "up2", 2 );
   }
   void ctl( std::vector<std::string> const & arguments ) const {
      auto const result = maintctl( arguments );
      ASSERT_EQ( result.status, 0 ) << arguments.front() << ": " << result.err;
   }
   void enter() const { ctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ); }
   void exit() const { ctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ); }
   // What an operator is told of the link has this in it, or soon does.
   [[nodiscard]] bool tells( std::string const & link, std::string const & what ) const {
      bool const told = eventually( [&] {
         return maintctl( { "explain", link } ).out.find( what ) != std::string::npos;
      } );
      if( !told ) std::cout << maintctl( { "explain", link } ).out;
      return told;
   }
   [[nodiscard]] bool comesUp( std::string const & link ) const {
      return eventually( [&] { return adminUp( link ) && text( shown( link ), "operStatus" ) == "up"; } );
   }
   // How often the link has come or gone since it was made.
   [[nodiscard]] static int carrierChanges( std::string const & link ) {
      return linkOf( link ).at( "stats64" ).at( "tx" ).at( "carrier_changes" ).to_number<int>();
   }
   // The link, its addresses and routes: all that an operator could miss.
   [[nodiscard]] static std::string allOf( std::string const & link ) {
      auto const about = linkOf( link );
      std::string all = boost::json::serialize( about.at( "flags" ) ) + serialize( about.at( "mtu" ) );
      for( auto const & address : addresses( link ) ) all += "\n" + address;
      for( char const * const family : { "-4", "-6" } ) {
         for( auto route : ask( family + std::string( " route show table all dev " ) + link ) ) {
            route.as_object().erase( "flags" );
            all += "\n" + boost::json::serialize( route );
         }
      }
      return all;
   }
   static void ipv6( std::string const & link ) {
      std::ofstream( "/proc/sys/net/ipv6/conf/" + link + "/disable_ipv6" ) << 0;
      ip( "address add fd00:9::1/64 dev " + link + " nodad" );
   }
};

TEST_F( Held, aLinkDrainsIsShutAndComesBackAsItWas ) {
   ip( "link set up1 mtu 1400" );
   ipv6( "up1" );
   // The link's own address is there when its detection of duplicates is over.
   ASSERT_TRUE( eventually( [] { return allOf( "up1" ).find( "tentative" ) == std::string::npos; } ) );
   std::string const before = allOf( "up1" );
   std::string const untouched = allOf( "up2" );
   int const changes = carrierChanges( "up1" );
   startMaintd( heldConfig( "up1" ) );
   pid_t const sender = send( "up1", 1, 4e6 );
   ctl( { "enter", "fabric" } );
   ASSERT_TRUE( eventually( [&] { return text( account( "fabric", "up1" ), "verdict" ) == "loud"; } ) );
   EXPECT_TRUE( adminUp( "up1" ) );
   stop( sender );
   enter();
   EXPECT_FALSE( adminUp( "up1" ) );
   EXPECT_EQ( text( account( "fabric", "up1" ), "verdict" ), "held" );
   exit();
   EXPECT_TRUE( comesUp( "up1" ) );
   EXPECT_TRUE( eventually( [&] { return allOf( "up1" ) == before; } ) ) << "before\n"
                                                                         << before << "\nafter\n"
                                                                         << allOf( "up1" );
   EXPECT_EQ( allOf( "up2" ), untouched );
   EXPECT_EQ( carrierChanges( "up1" ), changes + 2 );
   double const sent = sentBytes( "up1" );
   // The kernel has forgotten it, as it does with those of any link that goes down.
   ip( "neighbour replace 10.9.1.2 lladdr 02:00:00:00:01:02 dev up1" );
   static_cast<void>( send( "up1", 1, 4e6 ) );
   EXPECT_TRUE( eventually( [&] { return sentBytes( "up1" ) > sent + 10000; } ) );
}

// Whoever sets a link up while it is held has a reason; whoever has taken one down has, too.
TEST_F( Held, whatOthersDoToALinkIsToldAndNotFought ) {
   startMaintd( atOnce( "up1, up2" ) );
   ip( "link set up2 down" );
   ASSERT_TRUE( eventually( [&] { return text( shown( "up2" ), "operStatus" ) == "down"; } ) );
   enter();
   ip( "link set up1 up" );
   int const changes = carrierChanges( "up1" );
   EXPECT_TRUE( tells( "up1", "it is up although it was shut down" ) );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
   exit();
   EXPECT_TRUE( adminUp( "up1" ) );
   EXPECT_EQ( carrierChanges( "up1" ), changes );
   EXPECT_FALSE( adminUp( "up2" ) );

   // One that is made again while its name is held is another link; down is how somebody has made it.
   ip( "link set up2 up" );
   ASSERT_TRUE( comesUp( "up2" ) );
   enter();
   ip( "link delete up2\nlink add up2 type veth peer name farup2" );
   EXPECT_TRUE( tells( "up2", "its link has been down" ) );
   exit();
   EXPECT_FALSE( adminUp( "up2" ) );
   EXPECT_TRUE( adminUp( "up1" ) );
}

// All the moments of a cycle at which something is written, one after the other: maintd dies there, and the next one
// brings what was begun to its end.
class HeldDeaths : public Held {
 protected:
   // The operator asks once more when maintd has died, also when it was right after its answer.
   void insist( std::vector<std::string> const & arguments ) {
      bool const answered = maintctl( arguments ).status == 0;
      if( !eventually( [&] { return maintdDied(); }, answered ? 0.2 : 40 ) ) {
         EXPECT_TRUE( answered );
         return;
      }
      ++deaths_;
      startMaintd( atOnce( "up1" ) );
      ctl( arguments );
   }
   // Whether maintd says so. It may die after its answer, and on a busy machine so late that it dies while it is asked.
   [[nodiscard]] bool says( std::vector<std::string> const & question, std::string const & answer ) {
      return eventually( [&] {
         if( maintdDied() ) {
            ++deaths_;
            startMaintd( atOnce( "up1" ) );
         }
         return maintctl( question ).out.find( answer ) != std::string::npos;
      } );
   }
   int deaths_ = 0;
};

TEST_F( HeldDeaths, changeNothingButTime ) {
   for( int commit = 1; commit < 40; ++commit ) {
      for( char const * const when : { "before ", "after " } ) {
         std::string const death = when + std::to_string( commit );
         SCOPED_TRACE( "dies " + death );
         int const changes = carrierChanges( "up1" );
         int const before = deaths_;
         startMaintd( atOnce( "up1" ), {}, { .death = death } );
         insist( { "enter", "fabric", "--wait", "--timeout", "60s" } );
         EXPECT_FALSE( adminUp( "up1" ) );
         EXPECT_TRUE( says( { "status", "fabric", "--json" }, "\"verdict\": \"held\"" ) );
         insist( { "exit", "fabric", "--wait", "--timeout", "60s" } );
         EXPECT_TRUE( says( { "interfaces", "--json" }, "\"operStatus\": \"up\"" ) );
         EXPECT_TRUE( adminUp( "up1" ) );
         EXPECT_THAT( addresses( "up1" ), ElementsAre( "10.9.1.1/24" ) );
         EXPECT_EQ( carrierChanges( "up1" ), changes + 2 );
         EXPECT_TRUE( says( { "get", "maintenance/link/held/held" }, "{}\n" ) );
         stopMaintd( SIGKILL );
         EXPECT_TRUE( adminUp( "up1" ) );
         if( HasFailure() ) return;
         // A cycle has no more moments than this.
         if( deaths_ == before ) {
            std::cout << deaths_ << " deaths\n";
            EXPECT_GE( deaths_, 10 );
            return;
         }
      }
   }
   FAIL() << "a cycle without an end";
}

TEST_F( Held, linksAreGivenBackWithTheDaemonDead ) {
   auto const release = [&] { return maintctl( { "release", "--all", "--state", path( "state" ) } ); };
   startMaintd( atOnce( "up1, up2" ) );
   ip( "link set up2 down" );
   ASSERT_TRUE( eventually( [&] { return text( shown( "up2" ), "operStatus" ) == "down"; } ) );
   enter();
   auto const beside = release();
   EXPECT_NE( beside.status, 0 );
   EXPECT_THAT( beside.err, HasSubstr( "another" ) );
   EXPECT_FALSE( adminUp( "up1" ) );

   stopMaintd( SIGKILL );
   auto const released = release();
   EXPECT_EQ( released.status, 0 ) << released.err;
   EXPECT_THAT( released.out, HasSubstr( "up1: set up" ) );
   EXPECT_TRUE( adminUp( "up1" ) );
   EXPECT_FALSE( adminUp( "up2" ) );
   // It stays so until its unit has left, and is held anew the next time.
   int const changes = carrierChanges( "up1" );
   startMaintd( atOnce( "up1, up2" ) );
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   exit();
   EXPECT_EQ( carrierChanges( "up1" ), changes );
   enter();
   EXPECT_FALSE( adminUp( "up1" ) );
}

TEST_F( Held, aLinkIsHeldAgainAfterAStartOfTheMachine ) {
   startMaintd( atOnce( "up1" ) );
   enter();
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   EXPECT_FALSE( adminUp( "up1" ) );
   ip( "link delete up1" );
   link( "up1", 1 );
   startMaintd( atOnce( "up1" ), {}, { .inside = anotherBoot( file( "boot", "another\n" ) ) } );
   EXPECT_FALSE( adminUp( "up1" ) );
   EXPECT_TRUE( eventually( [&] { return maintctl( { "ready", "fabric" } ).status == 0; } ) );
   EXPECT_TRUE( tells( "up1", "held since before boot" ) );
   exit();
   EXPECT_TRUE( comesUp( "up1" ) );
}

// Each maintd with a store of its own over the good one, which stays as it is.
TEST_F( Held, aStoreThatCannotBeUsedMovesNoLink ) {
   startMaintd( atOnce( "up1" ) );
   enter();
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   std::string const state = path( "state" );
   std::string const store = state + "/maintd.db";
   std::string const kept = contents( store );
   std::string const over = "cp " + store + " " + path( "copy" ) + " && mount -t tmpfs -o size=64k none " + state;
   struct Case {
      std::string what;  // it says
      std::string inside;
   };
   for( auto const & [what, inside] : std::vector<Case>{
           { "is damaged", over + " && cp " + path( "copy" ) + " " + store + " && dd if=/dev/zero of=" + store +
                              " bs=1000 seek=5 count=3 conv=notrunc status=none" },
           { "is no store of maintd", over + " && echo mine > " + store },
           { "cannot be written", "mount --bind " + state + " " + state + " && mount -o remount,bind,ro " + state },
           { "has no room", over + " && ! cat /dev/zero > " + state + "/filler 2> /dev/null" },
        } ) {
      EXPECT_EQ( refusesToStart( atOnce( "up1" ), {}, { .inside = inside } ), 3 ) << what;
      EXPECT_THAT( contents( path( "maintd.log" ) ), AllOf( HasSubstr( what ), HasSubstr( "no link is touched" ) ) );
      EXPECT_FALSE( adminUp( "up1" ) );
      EXPECT_EQ( contents( store ), kept );
   }
   startMaintd( atOnce( "up1" ) );
   exit();
   EXPECT_TRUE( adminUp( "up1" ) );
}

TEST_F( Held, nothingIsBegunWhileTheStoreIsFull ) {
   std::string const state = path( "state" );
   startMaintd( atOnce( "up1" ), {}, { .inside = "mkdir " + state + " && mount -t tmpfs -o size=1m none " + state } );
   std::string const filler = maintdsRoot() + state + "/filler";
   std::ofstream( filler ) << std::string( 2'000'000, 'x' );
   auto const first = maintctl( { "enter", "fabric" } );
   EXPECT_EQ( first.status, 1 );
   EXPECT_THAT( first.err, AllOf( HasSubstr( "not on disk" ), HasSubstr( "has no room" ) ) );
   EXPECT_TRUE( adminUp( "up1" ) );
   auto const next = maintctl( { "exit", "fabric" } );
   EXPECT_NE( next.status, 0 );
   EXPECT_THAT( next.err, AllOf( HasSubstr( "nothing is changed" ), HasSubstr( "has no room" ) ) );
   EXPECT_TRUE( adminUp( "up1" ) );
   std::filesystem::remove( filler );
   EXPECT_TRUE( eventually( [&] { return Box::state( "fabric" ) == "inMaintenance"; } ) );
   EXPECT_FALSE( adminUp( "up1" ) );
}

TEST_F( Held, linksHaveOneAgent ) {
   startMaintd( atOnce( "up1" ) );
   auto const second = run( { RATEMON_MAINTD_PATH, "--config", path( "maintd.yaml" ), "--socket", path( "other.sock" ),
                              "--state", path( "other" ) } );
   EXPECT_EQ( second.status, 1 );
   EXPECT_THAT( second.err, HasSubstr( "the links of this network namespace are another's" ) );
   EXPECT_FALSE( std::filesystem::exists( path( "other" ) ) );
   EXPECT_EQ( maintctl( { "units" } ).status, 0 );
}

// The start of a big box: 512 links, 200 of them held.
TEST_F( Held, aStartTouchesNoLinkAndIsQuick ) {
   std::string batch;
   std::string names;
   for( int i = 1; i <= 254; ++i ) {
      std::string const n = std::to_string( i );
      batch += "link add p" + n + " type veth peer name q" + n + "\nlink set p" + n + " up\nlink set q" + n + " up\n";
      if( i <= 200 ) names += ( i == 1 ? "p" : ", p" ) + n;
   }
   ip( batch );
   startMaintd( atOnce( names ) );
   enter();
   auto const links = [] {
      std::string all;
      for( auto const & link : ask( "-statistics -statistics link show" ) ) {
         all += std::string( link.at( "ifname" ).as_string() ) + boost::json::serialize( link.at( "flags" ) ) +
                boost::json::serialize( link.at( "stats64" ).at( "tx" ).at( "carrier_changes" ) ) + "\n";
      }
      return all;
   };
   std::string const before = links();
   EXPECT_EQ( stopMaintd( SIGKILL ), -1 );
   // On a machine with other things to do the quickest of some starts counts.
   double seconds = 1e9;
   for( int attempt = 0; attempt < 10 && seconds >= 2; ++attempt ) {
      if( attempt > 0 ) stopMaintd( SIGKILL );
      auto const began = std::chrono::steady_clock::now();
      startMaintd( atOnce( names ) );
      seconds = std::chrono::duration<double>( std::chrono::steady_clock::now() - began ).count();
      std::cout << "answers " << seconds << " s after its start\n";
   }
   EXPECT_LT( seconds, 2 );
   EXPECT_TRUE( eventually( [&] { return maintctl( { "ready", "fabric" } ).status == 0; } ) );
   EXPECT_EQ( links(), before );
   exit();
   EXPECT_TRUE( adminUp( "p1" ) && adminUp( "p200" ) );
}

}  // namespace Test
