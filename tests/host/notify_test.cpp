// What a service manager hears of maintd, by a socket as it would listen at.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>

#include "ApiBox.h"
#include "TempDir.h"
#include "loop/ShiftedClock.h"
#include "notify/ServiceManager.h"
#include "statusline/StatusLine.h"

namespace Host {
namespace {

using Maintenance::Unit::State;

class ServiceManagerTest : public ::testing::Test {
 protected:
   ServiceManagerTest() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::string const path = directory_ / "notify";
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      EXPECT_EQ( bind( socket_, reinterpret_cast<sockaddr *>( &address ), sizeof address ), 0 );
      setenv( "NOTIFY_SOCKET", path.c_str(), 1 );
      setenv( "WATCHDOG_USEC", "200000", 1 );
      setenv( "WATCHDOG_PID", std::to_string( getpid() ).c_str(), 1 );
   }
   ~ServiceManagerTest() override {
      close( socket_ );
      for( char const * name : { "NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID" } ) unsetenv( name );
   }

   void runFor( double seconds ) {
      boost::asio::steady_timer end( loop_.io(), std::chrono::milliseconds( static_cast<int>( seconds * 1000 ) ) );
      end.async_wait( [&]( auto ) { loop_.stop(); } );
      boost::asio::steady_timer tick( loop_.io() );
      countTicks( tick );
      loop_.io().restart();
      loop_.run();
   }
   // As signs of life are to be: the next one 0.1 s after the one before. On a machine without time there are fewer.
   void countTicks( boost::asio::steady_timer & tick ) {
      tick.expires_after( std::chrono::milliseconds( 100 ) );
      tick.async_wait( [&]( auto error ) {
         if( error ) return;
         ++ticks_;
         countTicks( tick );
      } );
   }

   // All that came since it was asked last, but for the signs of life, which are counted.
   std::vector<std::string> heard() {
      std::vector<std::string> messages;
      std::array<char, 4096> text{};
      ssize_t length = 0;
      while( ( length = recv( socket_, text.data(), text.size(), MSG_DONTWAIT ) ) > 0 ) {
         std::string const message( text.data(), static_cast<std::size_t>( length ) );
         if( message == "WATCHDOG=1" ) {
            ++signsOfLife_;
         } else {
            messages.push_back( message );
         }
      }
      return messages;
   }

   TempDir const directory_;
   int const socket_ = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   int signsOfLife_ = 0;
   int ticks_ = 0;
   std::string line_ = "1 unit, none in maintenance";
   int linesMade_ = 0;
   Kel::Ptr<Kel::Clock> const clock_{ new ShiftedClock( 0 ) };
   Kel::ActivityLoop activity_{ clock_ };
   AsioLoop loop_{ activity_ };

   std::string line() {
      ++linesMade_;
      return line_;
   }
};

using Messages = std::vector<std::string>;

TEST_F( ServiceManagerTest, hearsOfTheLifeOfAnAgent ) {
   ServiceManager manager( loop_ );
   EXPECT_EQ( heard(), Messages{} );  // not ready yet
   manager.ready( [this] { return line(); } );
   EXPECT_EQ( heard(), Messages{ "READY=1\nSTATUS=1 unit, none in maintenance" } );
   // Many turns within a second make one line, the last.
   for( int turn = 0; turn < 100; ++turn ) {
      line_ = "fabric " + std::to_string( turn ) + "/100 quiet";
      loop_.turn();
   }
   runFor( 1.1 );
   EXPECT_EQ( heard(), Messages{ "STATUS=fabric 99/100 quiet" } );
   EXPECT_EQ( linesMade_, 2 );
   EXPECT_GE( signsOfLife_, ticks_ - 1 );
   EXPECT_GE( signsOfLife_, 2 );  // one of them at once
   manager.reloading();
   manager.reloaded();
   auto const reload = heard();
   ASSERT_EQ( reload.size(), 2u );
   EXPECT_EQ( reload[0].rfind( "RELOADING=1\nMONOTONIC_USEC=", 0 ), 0u );
   EXPECT_EQ( reload[1], "READY=1" );
   loop_.turn();  // changes nothing, and one that is under way when it ends
   manager.stopping();
   EXPECT_EQ( heard(), Messages{ "STOPPING=1\nSTATUS=stopping" } );
   signsOfLife_ = 0;
   runFor( 1.1 );
   EXPECT_EQ( heard(), Messages{} );
   EXPECT_EQ( signsOfLife_, 0 );
}

TEST_F( ServiceManagerTest, mayListenAtANameThatIsNoFileAndWatchOverAnotherProcess ) {
   std::string const name = "ratemon-notify-" + std::to_string( getpid() );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   name.copy( address.sun_path + 1, name.size() );
   auto const length = static_cast<socklen_t>( offsetof( sockaddr_un, sun_path ) + 1 + name.size() );
   int const named = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   ASSERT_EQ( bind( named, reinterpret_cast<sockaddr *>( &address ), length ), 0 );
   dup2( named, socket_ );
   close( named );
   setenv( "NOTIFY_SOCKET", ( "@" + name ).c_str(), 1 );
   setenv( "WATCHDOG_PID", "1", 1 );
   ServiceManager manager( loop_ );
   manager.ready( [this] { return line(); } );
   runFor( 0.3 );
   EXPECT_EQ( heard(), Messages{ "READY=1\nSTATUS=1 unit, none in maintenance" } );
   EXPECT_EQ( signsOfLife_, 0 );
   // Where nobody listens, and where nobody can, nobody is harmed.
   for( std::string const & nowhere : { directory_ / "nobody", std::string( 200, 'x' ) } ) {
      setenv( "NOTIFY_SOCKET", nowhere.c_str(), 1 );
      ServiceManager( loop_ ).ready( [this] { return line(); } );
   }
}

TEST_F( ServiceManagerTest, isNotThereForAnAgentThatSomebodyStartedByHand ) {
   unsetenv( "NOTIFY_SOCKET" );
   ServiceManager manager( loop_ );
   manager.ready( [this] { return line(); } );
   loop_.turn();
   manager.stopping();
   EXPECT_EQ( linesMade_, 0 );
   EXPECT_EQ( heard(), Messages{} );
}

class StatusLineTest : public ApiBox, public ::testing::Test {
 protected:
   std::string line() { return statusLine( service_, state_ ); }
   // As the stage manager and the ledger leave them.
   void stands( State state, bool ready, bool disturbed ) {
      state_.unitStatus->status( Kel::String8( "fabric" ) )->stateIs( state );
      if( auto const book = service_.ledger().accounts()->unit( Kel::Name( "fabric" ) ) ) {
         book->readyIs( ready );
         book->disturbedIs( disturbed );
      }
   }
};

TEST_F( StatusLineTest, saysHowTheUnitsStand ) {
   EXPECT_EQ( line(), "no unit is configured" );
   makeUnit();
   EXPECT_EQ( line(), "1 unit, none in maintenance" );
   EXPECT_EQ( ask( "POST", "/v1/units/fabric/enter?without=up2" ).status, 200u );
   EXPECT_EQ( line(), "fabric 0/1 quiet" );
   service_.ledger()
      .accounts()
      ->unit( Kel::Name( "fabric" ) )
      ->account( Lumo::IntfId::declare( "up1", Lumo::IntfKind::ethernet ) )
      ->settledIs( true );
   EXPECT_EQ( line(), "fabric 1/1 quiet" );
   struct {
      State state;
      bool ready, disturbed;
      char const * line;
   } const cases[] = {
      { State::entering, true, false, "fabric 1/1 quiet" },  // its stages go on
      { State::inMaintenance, true, false, "fabric ready" },
      { State::inMaintenance, false, false, "fabric 1/1 quiet" },
      { State::inMaintenance, false, true, "fabric DISTURBED, 1/1 quiet" },
      { State::leaving, false, false, "fabric leaving" },
      { State::failed, false, false, "fabric FAILED" },
      { State::active, false, false, "1 unit, none in maintenance" },
   };
   for( auto const & [state, ready, disturbed, expected] : cases ) {
      stands( state, ready, disturbed );
      EXPECT_EQ( line(), expected );
   }
}

TEST_F( StatusLineTest, namesNoMoreUnitsThanPeopleReadOnALine ) {
   std::string config =
      "profiles: { quick: { threshold: 100kbps } }\ndefault-profile: quick\n"
      "groups: { g: { interfaces: [up1] } }\nunits:\n";
   for( char const * name : { "a", "b", "c", "d", "e", "f" } )
      config += std::string( "   " ) + name + ": { groups: [g] }\n";
   loop_.turn( [&] { ASSERT_EQ( service_.reload( Service::Config::parse( config, "maintd.yaml" ) ), Messages{} ); } );
   for( auto [name, unit] : state_.unitStatus->statusIterator() ) unit->stateIs( State::failed );
   EXPECT_EQ( line(), "a FAILED; b FAILED; c FAILED; d FAILED; and 2 more" );
}

}  // namespace
}  // namespace Host
