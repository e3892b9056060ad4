// maintctl watch as a process: into a pipe, and in a terminal of its own.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "Maintctl.h"

namespace Cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Service::UnitsAnswer watchedUnits() {
   Service::UnitsAnswer answer;
   answer.units.resize( 1 );
   auto & unit = answer.units.front();
   unit.unit = "fabric";
   unit.state = "entering";
   unit.now = 1000;
   unit.interfaces.resize( 1 );
   unit.interfaces[0].interface = "up1";
   unit.interfaces[0].verdict = "loud";
   unit.interfaces[0].outBitsRate = 4e6;
   unit.interfaces[0].inBitsRate = 0;
   unit.interfaces[0].thresholdBitsRate = 1e5;
   return answer;
}

// A pseudo terminal with maintctl watch in it.
class WatchTerminal {
 public:
   WatchTerminal( std::string const & socket, std::vector<std::string> const & environment,
                  std::vector<std::string> const & arguments ) {
      winsize const size{ 24, 80, 0, 0 };
      EXPECT_EQ( ::openpty( &own_, &program_, nullptr, nullptr, &size ), 0 );
      ::tcgetattr( program_, &before_ );
      process_ = ::fork();
      if( process_ != 0 ) return;
      ::login_tty( program_ );
      ::setenv( "TERM", "xterm", 1 );
      ::setenv( "LC_ALL", "C.UTF-8", 1 );
      ::unsetenv( "NO_COLOR" );
      for( std::string const & variable : environment ) ::putenv( const_cast<char *>( variable.c_str() ) );
      std::vector<std::string> words{ RATEMON_MAINTCTL_PATH, "--socket", socket, "watch" };
      words.insert( words.end(), arguments.begin(), arguments.end() );
      std::vector<char *> taken;
      for( std::string & word : words ) taken.push_back( word.data() );
      taken.push_back( nullptr );
      ::execv( taken.front(), taken.data() );
      ::_exit( 127 );
   }
   ~WatchTerminal() {
      if( process_ > 0 ) ::kill( process_, SIGKILL );
      if( process_ > 0 ) ::waitpid( process_, nullptr, 0 );
      ::close( own_ );
      ::close( program_ );
   }

   void type( std::string const & keys ) const { EXPECT_GT( ::write( own_, keys.data(), keys.size() ), 0 ); }
   // Reads on until it has been shown. Only what changes is sent, so all of it is asked for again and again.
   [[nodiscard]] bool shows( std::string const & text ) {
      for( int i = 0; i < 200; ++i ) {
         read( 100 );
         if( shown_.find( text ) != std::string::npos ) return true;
         if( i % 5 == 4 ) type( "\f" );
      }
      return false;
   }
   // The status as of waitpid(), of one that ends by itself.
   int ended() {
      int status = -1;
      for( int i = 0; i < 200 && process_ > 0; ++i ) {
         read( 100 );
         if( ::waitpid( process_, &status, WNOHANG ) == process_ ) process_ = 0;
      }
      EXPECT_EQ( process_, 0 ) << "it did not end";
      // What it wrote last may still be on its way through the terminal; this comes behind it.
      std::string const behind = "all is read";
      EXPECT_GT( ::write( program_, behind.data(), behind.size() ), 0 );
      for( int i = 0; i < 200 && shown_.find( behind ) == std::string::npos; ++i ) read( 100 );
      return status;
   }
   [[nodiscard]] bool restored() const {
      termios now{};
      ::tcgetattr( program_, &now );
      return now.c_lflag == before_.c_lflag && now.c_iflag == before_.c_iflag && now.c_oflag == before_.c_oflag;
   }
   [[nodiscard]] std::string const & shown() const { return shown_; }

 private:
   void read( int ms ) {
      pollfd watched{ own_, POLLIN, 0 };
      while( ::poll( &watched, 1, ms ) > 0 ) {
         std::array<char, 4096> piece{};
         ssize_t const n = ::read( own_, piece.data(), piece.size() );
         if( n <= 0 ) return;
         shown_.append( piece.data(), static_cast<std::size_t>( n ) );
         ms = 0;
      }
   }

   int own_ = -1;
   int program_ = -1;
   termios before_{};
   pid_t process_ = -1;
   std::string shown_;
};

using WatchProgram = Maintctl;

TEST_F( WatchProgram, leavesTheTerminalAsItWas ) {
   daemonAnswers( { { "GET /v1/units", { ok( watchedUnits() ) } } } );
   struct Case {
      std::vector<std::string> arguments;
      std::string keys;
      int status;  // as of waitpid()
   };
   for( auto const & [arguments, keys, status] :
        { Case{ {}, "q", 0 }, Case{ {}, "?\x03", SIGINT }, Case{ { "-n", "2", "--interval", "100ms" }, "", 0 } } ) {
      WatchTerminal terminal( path( "socket" ), {}, arguments );
      ASSERT_TRUE( terminal.shows( "40x over" ) ) << terminal.shown();
      if( !keys.empty() ) {
         EXPECT_FALSE( terminal.restored() );
         terminal.type( keys );
      }
      EXPECT_EQ( terminal.ended(), status ) << keys;
      EXPECT_TRUE( terminal.restored() ) << keys;
      // Of a view that was to end, the last picture stays; of one that was left, nothing.
      auto const behind = terminal.shown().substr( terminal.shown().rfind( "\x1b[?1049l" ) );
      EXPECT_EQ( behind.find( "40x over" ) != std::string::npos, keys.empty() ) << behind;
   }
}

TEST_F( WatchProgram, hasColoursUnlessTheyAreNotWanted ) {
   daemonAnswers( { { "GET /v1/units", { ok( watchedUnits() ) } } } );
   for( bool const wanted : { true, false } ) {
      WatchTerminal terminal( path( "socket" ), { wanted ? "NO_COLOR=" : "NO_COLOR=1" }, {} );
      ASSERT_TRUE( terminal.shows( "40x over" ) );
      EXPECT_EQ( terminal.shown().find( "\x1b[31m" ) != std::string::npos, wanted );
   }
}

TEST_F( WatchProgram, saysThatTheDaemonHasGoneAndGoesOnWhenItIsBack ) {
   daemonAnswers( { { "GET /v1/units", { ok( watchedUnits() ) } } } );
   WatchTerminal terminal( path( "socket" ), {}, { "--interval", "100ms" } );
   ASSERT_TRUE( terminal.shows( "40x over" ) );
   daemonGone();
   EXPECT_TRUE( terminal.shows( "maintd is not running" ) ) << terminal.shown();
   auto units = watchedUnits();
   units.units[0].now = 1010;
   units.units[0].interfaces[0].outBitsRate = 7e6;
   daemonAnswers( { { "GET /v1/units", { ok( units ) } } } );
   EXPECT_TRUE( terminal.shows( "70x over" ) ) << terminal.shown();
   // One that takes connections and never answers holds up nobody.
   daemon().stop();
   terminal.type( "q" );
   EXPECT_EQ( terminal.ended(), 0 );
}

TEST_F( WatchProgram, writesLinesWhereThereIsNoTerminal ) {
   EXPECT_EQ( maintctl( { "watch", "-n", "1" } ).status, 5 );
   Reply const trouble{ 503, R"({"error": "not\u001b now"})" };
   daemonAnswers( { { "GET /v1/units", { ok( watchedUnits() ), trouble, trouble, ok( watchedUnits() ) } } } );
   auto const result = maintctl( { "watch", "-n", "4", "--interval", "100ms" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( std::count( result.out.begin(), result.out.end(), '\n' ), 3 ) << result.out;
   EXPECT_THAT( result.out, HasSubstr( "40x over" ) );
   EXPECT_THAT( result.out, Not( HasSubstr( "\x1b" ) ) );
   EXPECT_EQ( result.err, "maintctl: not\\u001b now\n" ) << "said once";
   EXPECT_EQ( maintctl( { "watch", "nosuch" } ).status, 1 );
   EXPECT_EQ( maintctl( { "watch", "--interval", "0" } ).status, 2 );
}

}  // namespace
}  // namespace Cli
