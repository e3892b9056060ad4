// The shipped hooks with a real FRR, whose daemons run in a namespace of their own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>

#include "net/PrivateNetwork.h"

namespace Test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct Shipped {
   std::string name;
   std::string daemon;
   std::string router;
   std::string setting;
};

std::vector<Shipped> const shipped{
   { "frr-graceful-shutdown", "bgpd", "router bgp 65001", "bgp graceful-shutdown" },
   { "frr-isis-overload", "isisd", "router isis CORE", "set-overload-bit" },
   { "frr-ospf-max-metric", "ospfd", "router ospf", "max-metric router-lsa administrative" },
};

class Frr : public PrivateNetwork {
 protected:
   static constexpr char const * programs = "/usr/lib/frr/";
   static constexpr char const * startup = "/etc/frr/frr.conf";

   void SetUp() override {
      if( !std::filesystem::exists( std::string( programs ) + "bgpd" ) ) {
         GTEST_SKIP() << "FRR is not installed, so its hooks are not tested; Debian's package frr is all that it takes";
      }
      PrivateNetwork::SetUp();
      if( HasFatalFailure() ) return;
      ASSERT_NO_FATAL_FAILURE( enterDirectories() );
      ip( "link set lo up\nlink add v0 type veth peer name v1\naddr add 10.1.0.1/24 dev v0\nlink set v0 up\nlink set "
          "v1 up" );
      std::ofstream( "/etc/frr/vtysh.conf" ).flush();
      std::ofstream( startup ) << "router bgp 65001\n bgp router-id 10.1.0.1\n!\nrouter bgp 65001 vrf RED\n!\n"
                                  "router isis CORE\n net 49.0001.0000.0000.0001.00\n!\n"
                                  "router ospf\n network 10.1.0.0/24 area 0\n!\n";
      for( char const * daemon : { "zebra", "bgpd", "isisd", "ospfd" } ) start( daemon );
      ASSERT_EQ( run( "vtysh -b" ).first, 0 );
   }
   void TearDown() override {
      for( auto const & [daemon, pid] : running_ ) end( pid );
   }

   // What FRR writes to is this test's. Whoever runs it is root in here, and has to be in FRR's group.
   static void enterDirectories() {
      ASSERT_EQ( unshare( CLONE_NEWNS ), 0 );
      ASSERT_EQ( mount( "none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr ), 0 );
      for( char const * directory : { "/run", "/etc/frr", "/var/tmp" } ) {
         ASSERT_EQ( mount( "none", directory, "tmpfs", 0, "mode=0755" ), 0 ) << directory;
      }
      ASSERT_EQ( mkdir( "/run/frr", 0755 ), 0 );
      std::ofstream( "/run/group" ) << "root:x:0:\nfrr:x:0:root\nfrrvty:x:0:root\n";
      ASSERT_EQ( mount( "/run/group", "/etc/group", nullptr, MS_BIND, nullptr ), 0 );
   }

   void start( std::string const & daemon ) {
      pid_t const pid = fork();
      if( pid == 0 ) {
         prctl( PR_SET_PDEATHSIG, SIGKILL );
         int const nowhere = open( "/dev/null", O_RDWR );
         for( int fd = 0; fd < 3; ++fd ) dup2( nowhere, fd );
         execl( ( programs + daemon ).c_str(), daemon.c_str(), "-u", "root", "-g", "root", "-f", "/etc/frr/none",
                nullptr );
         _exit( 127 );
      }
      running_[daemon] = pid;
      for( int i = 0; i < 3000 && run( "vtysh -d " + daemon + " -c 'show version'" ).first != 0; ++i ) usleep( 10'000 );
   }
   static void end( pid_t pid ) {
      kill( pid, SIGKILL );
      waitpid( pid, nullptr, 0 );
   }
   // As FRR's own watchdog does.
   void restart( std::string const & daemon ) {
      end( running_[daemon] );
      start( daemon );
      ASSERT_EQ( run( "vtysh -b -d " + daemon ).first, 0 );
   }

   static std::pair<int, std::string> run( std::string const & command ) {
      FILE * const answer = popen( ( command + " 2>&1 < /dev/null" ).c_str(), "r" );
      std::string text;
      for( int c = std::fgetc( answer ); c != EOF; c = std::fgetc( answer ) ) text += static_cast<char>( c );
      return { pclose( answer ), text };
   }
   // As maintd runs it: its exit status and what it says.
   static std::pair<int, std::string> hook( Shipped const & hook, std::string const & arguments,
                                            std::string const & unit = "fabric" ) {
      return run( "cd /; env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin MAINT_UNIT='" + unit +
                  "' " RATEMON_SOURCE_DIR "/packaging/hooks/" + hook.name + " " + arguments );
   }
   static void expectDone( Shipped const & which, std::string const & arguments, std::string const & said,
                           std::string const & unit = "fabric" ) {
      auto const [status, text] = hook( which, arguments, unit );
      EXPECT_EQ( status, 0 ) << text;
      EXPECT_THAT( text, HasSubstr( said ) );
   }
   static void configure( Shipped const & hook, std::string const & line ) {
      auto const [status, text] =
         run( "vtysh -d " + hook.daemon + " -c 'configure terminal' -c '" + hook.router + "' -c '" + line + "'" );
      ASSERT_EQ( status, 0 ) << text;
   }
   static std::string configuration( Shipped const & hook ) {
      return run( "vtysh -d " + hook.daemon + " -c 'show running-config'" ).second;
   }
   static std::string contents( std::string const & path ) {
      std::stringstream text;
      text << std::ifstream( path ).rdbuf();
      return text.str();
   }

   std::map<std::string, pid_t> running_;
};

class FrrHook : public Frr, public ::testing::WithParamInterface<Shipped> {};

TEST_P( FrrHook, undoesWhatItHasSetAndNothingElse ) {
   Shipped const & c = GetParam();
   std::string const before = configuration( c );
   std::string const startupBefore = contents( startup );
   ASSERT_THAT( before, HasSubstr( c.router ) );

   expectDone( c, "enter", c.router + ": " + c.setting + ": set\n" );
   EXPECT_THAT( configuration( c ), HasSubstr( "\n " + c.setting + "\n" ) );
   expectDone( c, "enter", c.setting + ": set\n" );  // as after a restart of maintd
   expectDone( c, "exit", c.router + ": " + c.setting + ": taken back\n" );
   EXPECT_EQ( configuration( c ), before );
   expectDone( c, "exit", "has nothing that was set here for unit fabric" );

   // Two units, of which one has a name that is no word.
   expectDone( c, "enter", ": set\n" );
   expectDone( c, "enter", ": set\n", "the \"ré|d\" one" );
   expectDone( c, "exit", ": stays for another unit\n" );
   EXPECT_THAT( configuration( c ), HasSubstr( "\n " + c.setting + "\n" ) );
   expectDone( c, "exit", ": taken back\n", "the \"ré|d\" one" );
   EXPECT_EQ( configuration( c ), before );

   // Interrupted between the mark and the setting, or undone by hand.
   expectDone( c, "enter", ": set\n" );
   configure( c, "no " + c.setting );
   expectDone( c, "exit", ": taken back\n" );
   EXPECT_EQ( configuration( c ), before );
   expectDone( c, "enter", ": set\n" );
   configure( c, "no " + c.setting );
   expectDone( c, "enter", ": set\n" );
   EXPECT_THAT( configuration( c ), HasSubstr( "\n " + c.setting + "\n" ) );

   // The daemon forgets both, and what somebody sets afterwards is theirs.
   restart( c.daemon );
   EXPECT_EQ( configuration( c ), before );
   expectDone( c, "exit", "has nothing that was set here" );
   EXPECT_EQ( configuration( c ), before );
   configure( c, c.setting );
   std::string const theirs = configuration( c );
   for( auto const & [arguments, said] : std::vector<std::pair<std::string, std::string>>{
           { "exit", "has nothing" }, { "enter default", "left to them" }, { "exit", "has nothing" } } ) {
      expectDone( c, arguments, said );
      EXPECT_EQ( configuration( c ), theirs );
   }
   EXPECT_EQ( contents( startup ), startupBefore );
}

TEST_P( FrrHook, saysWhatWentWrong ) {
   Shipped const & c = GetParam();
   auto const expectFailure = [&]( std::string const & arguments, std::string const & why ) {
      auto const [status, text] = hook( c, arguments );
      EXPECT_EQ( WEXITSTATUS( status ), 1 );
      EXPECT_THAT( text, HasSubstr( why ) );
   };
   std::string const before = configuration( c );
   expectFailure( "", "usage: " );
   expectFailure( "leave", "usage: " );
   expectFailure( "enter BLUE", c.daemon + " has no instance BLUE" );
   EXPECT_EQ( configuration( c ), before );
   EXPECT_EQ( WEXITSTATUS( hook( c, "enter", "" ).first ), 1 );
   end( running_[c.daemon] );
   expectFailure( "exit",
                  "asked for \"show running-config\", vtysh -d " + c.daemon + " answers: Exiting: failed to connect" );
   expectFailure( "enter", "failed to connect" );
}

INSTANTIATE_TEST_SUITE_P( All, FrrHook, ::testing::ValuesIn( shipped ),
                          []( auto const & hook ) { return hook.param.daemon; } );

TEST_F( Frr, settingThatDoesNotTakeIsAFailureAndIsTakenBack ) {
   Shipped const & ospf = shipped[2];
   configure( ospf, "no network 10.1.0.0/24 area 0" );  // without an area there is nothing to set it in
   std::string const before = configuration( ospf );
   auto const [status, text] = hook( ospf, "enter" );
   EXPECT_NE( status, 0 );
   EXPECT_THAT( text, HasSubstr( "is not there after vtysh -d ospfd has done this: " ) );
   EXPECT_THAT( text, HasSubstr( "(config-router)# max-metric router-lsa administrative\n" ) );
   expectDone( ospf, "exit", "taken back" );
   EXPECT_EQ( configuration( ospf ), before );
}

TEST_F( Frr, bgpInstancesAreNamedByAsOrVrfAndMayBeSetAllAtOnceByTheOperator ) {
   Shipped const & bgp = shipped[0];
   std::string const before = configuration( bgp );
   expectDone( bgp, "enter RED", "router bgp 65001 vrf RED: bgp graceful-shutdown: set\n" );
   EXPECT_THAT( configuration( bgp ), HasSubstr( "vrf RED\n bgp graceful-shutdown\n" ) );
   EXPECT_THAT( hook( bgp, "enter RED" ).second, Not( HasSubstr( "65001:" ) ) );
   expectDone( bgp, "enter default", "router bgp 65001: bgp graceful-shutdown: set\n" );
   expectDone( bgp, "exit RED", "router bgp 65001 vrf RED: bgp graceful-shutdown: taken back\n" );
   EXPECT_THAT( configuration( bgp ), HasSubstr( "10.1.0.1\n bgp graceful-shutdown\n" ) );
   expectDone( bgp, "exit 65001", "router bgp 65001: bgp graceful-shutdown: taken back\n" );
   EXPECT_EQ( configuration( bgp ), before );

   // An instance that has gone is not made again.
   expectDone( bgp, "enter", "RED: bgp graceful-shutdown: set\n" );
   EXPECT_EQ( run( "vtysh -d bgpd -c 'configure terminal' -c 'no router bgp 65001 vrf RED'" ).first, 0 );
   expectDone( bgp, "exit", "router bgp 65001 vrf RED: it is gone" );
   EXPECT_THAT( configuration( bgp ), Not( ::testing::ContainsRegex( "RED|graceful|route-map" ) ) );

   EXPECT_EQ( run( "vtysh -d bgpd -c 'configure terminal' -c 'bgp graceful-shutdown'" ).first, 0 );
   std::string const theirs = configuration( bgp );
   ASSERT_THAT( theirs, HasSubstr( "\nbgp graceful-shutdown\n" ) );
   expectDone( bgp, "enter", "left to them" );
   expectDone( bgp, "exit", "has nothing" );
   EXPECT_EQ( configuration( bgp ), theirs );
}

}  // namespace
}  // namespace Test
