// Hooks as nasty as they come, run for real: what is told of them, and that nothing of them is left.
#include "hooks/ProgramHooks.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "hooks/Lines.h"
#include "kel/Clock.h"
#include "net/TrustedPlace.h"

namespace Host {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Programs : public ::testing::Test {
 protected:
   Programs() : activity_( new Kel::RealClock ), loop_( activity_ ) {
      umask( 022 );
      hooks_.emplace( loop_, [this]( auto const &, auto const & line ) { lines_.push_back( line ); } );
   }
   ~Programs() override {
      hooks_.reset();
      if( !directory_.empty() ) fs::remove_all( directory_ );
   }
   void SetUp() override {
      directory_ = trustedPlace();
      if( directory_.empty() )
         GTEST_SKIP() << "the tree lies below a directory that others may write to: no hook is run";
   }

   [[nodiscard]] std::string path( std::string const & name ) const { return directory_ + "/" + name; }
   std::string script( std::string const & text, std::string const & name = "hook" ) const {
      std::ofstream( path( name ) ) << "#!/bin/bash\n" << text << "\n";
      chmod( path( name ).c_str(), 0755 );
      return path( name );
   }
   void start( std::vector<std::string> const & command, std::string const & unit = "fabric" ) {
      loop_.turn( [&] {
         hooks_->run( { "bgp", command, unit, Maintenance::Unit::MaintenanceOp::enter, 7 },
                      [this, unit]( std::string const & failure ) {
                         EXPECT_TRUE( activity_.inTurn() );
                         EXPECT_FALSE( over_.contains( unit ) ) << "told twice";
                         over_[unit] = failure.empty() ? "done" : failure;
                      } );
      } );
   }
   // How it ended, by which time nothing of it is left.
   std::string run( std::vector<std::string> const & command ) {
      start( command );
      EXPECT_TRUE( await( [this] { return over_.contains( "fabric" ); } ) );
      EXPECT_THAT( left(), IsEmpty() );
      return over_["fabric"];
   }
   void giveUp( std::string const & unit ) {
      loop_.turn( [&] { hooks_->giveUp( unit ); } );
   }
   // Asked once a round: what held for a moment, as of processes that come and go, has held.
   bool await( std::function<bool()> const & holds, milliseconds longest = milliseconds( 20'000 ) ) {
      auto const until = steady_clock::now() + longest;
      while( !holds() ) {
         if( steady_clock::now() >= until ) return false;
         loop_.io().restart();
         loop_.io().run_for( milliseconds( 10 ) );
      }
      return true;
   }
   void pass( milliseconds time ) {
      static_cast<void>( await( [] { return false; }, time ) );
   }
   // The processes whose command line names this case's directory: scripts, and what they start under such a name.
   [[nodiscard]] std::vector<std::string> left() const {
      std::vector<std::string> found;
      for( auto const & entry : fs::directory_iterator( "/proc" ) ) {
         std::stringstream text;
         text << std::ifstream( entry.path() / "cmdline" ).rdbuf();
         if( text.str().find( directory_ ) != std::string::npos ) found.push_back( text.str() );
      }
      return found;
   }
   [[nodiscard]] bool exists( std::string const & name ) const { return fs::exists( path( name ) ); }
   [[nodiscard]] std::string contents( std::string const & name ) const {
      std::stringstream text;
      text << std::ifstream( path( name ) ).rdbuf();
      return text.str();
   }

   Kel::ActivityLoop activity_;
   AsioLoop loop_;
   std::string directory_;
   std::vector<std::string> lines_;
   std::map<std::string, std::string> over_;  // by unit; "done" or the failure
   std::optional<ProgramHooks> hooks_;
};

TEST_F( Programs, theirEndIsToldAsItWas ) {
   EXPECT_EQ( run( { script( "exit 0" ) } ), "done" );
   over_.clear();
   EXPECT_EQ( run( { "/bin/true" } ), "done" );
   over_.clear();
   EXPECT_EQ( run( { script( "echo to both; echo to both >&2; exit 3" ) } ), "exit status 3: to both" );
   EXPECT_THAT( lines_, ElementsAre( "to both", "to both" ) );
   over_.clear();
   EXPECT_EQ( run( { script( "kill -9 $$" ) } ), "ended by signal 9 (Killed)" );
   over_.clear();
   // Half a line and no word after it.
   EXPECT_EQ( run( { script( "printf half; exec >&- 2>&-; sleep 0.1; exit 4" ) } ), "exit status 4: half" );
   EXPECT_EQ( lines_.back(), "half" );
}

TEST_F( Programs, seeNothingOfOursButWhatTheyAreTold ) {
   int const open = ::open( "/dev/null", O_RDONLY );  // as a careless library leaves it: not closed on exec
   signal( SIGPIPE, SIG_IGN );
   auto const hook = script( R"(echo "$0|$#|$1|$2|$PWD"
env | sort | grep -v -e ^_= -e ^PWD= -e ^SHLVL=
ls /proc/self/fd | tr '\n' ' '; echo
read -r line || echo "no input"
grep -e 'Cap[IPEA]' -e NoNewPrivs -e SigIgn -e SigBlk /proc/self/status | tr -s '\t\n' ' '; echo
read -r -a fields < /proc/$$/stat; (( fields[4] == $$ )) && echo "a group of its own"
)" );
   EXPECT_EQ( run( { hook, "enter", "$HOME; *" } ), "done" );
   signal( SIGPIPE, SIG_DFL );
   close( open );
   EXPECT_THAT( lines_,
                ElementsAre( hook + "|2|enter|$HOME; *|/", "MAINT_GENERATION=7", "MAINT_OP=enter", "MAINT_STAGE=bgp",
                             "MAINT_UNIT=fabric", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "0 1 2 3 ", "no input",
                             "SigBlk: 0000000000000000 SigIgn: 0000000000000000 CapInh: 0000000000000000 CapPrm: "
                             "0000000000000000 CapEff: 0000000000000000 CapAmb: 0000000000000000 NoNewPrivs: 1 ",
                             "a group of its own" ) );
}

TEST_F( Programs, areNotRunWhereAnOutsiderCouldHavePutThem ) {
   auto const good = script( "exit 0" );
   auto const change = [&]( std::string const & name, mode_t mode ) { chmod( path( name ).c_str(), mode ); };
   fs::create_directories( path( "open/below" ) );
   for( char const * name : { "shared", "loose", "plain", "open/below/deep", "open/hook" } ) script( "exit 0", name );
   change( "shared", 0775 );
   change( "loose", 0757 );
   change( "plain", 0644 );
   change( "open", 01777 );
   fs::create_symlink( good, path( "link" ) );
   fs::create_symlink( "../hook", path( "open/link" ) );  // whoever may write there chooses where it leads
   fs::create_symlink( "open/../hook", path( "around" ) );
   fs::create_symlink( "itself", path( "itself" ) );
   std::map<std::string, std::string> const cases{
      { good, "" },
      { path( "./open/.././/hook" ), path( "open" ) + ": writable by others" },
      { path( "link" ), "" },
      { "/bin/true", "" },
      { path( "shared" ), path( "shared" ) + ": writable by others" },
      { path( "loose" ), path( "loose" ) + ": writable by others" },
      { path( "open/below/deep" ), path( "open" ) + ": writable by others" },
      { path( "open/hook" ), path( "open" ) + ": writable by others" },
      { path( "open/link" ), path( "open" ) + ": writable by others" },
      { path( "around" ), path( "open" ) + ": writable by others" },
      { path( "plain" ), path( "plain" ) + ": not executable" },
      { path( "itself" ), path( "itself" ) + ": too many symbolic links" },
      { path( "none/hook" ), path( "none" ) + ": no such file" },
      { path( "hook/x" ), path( "hook" ) + ": no directory" },
      { directory_, directory_ + ": no regular file" },
      { "hook", "hook: no absolute path" } };
   for( auto const & [program, objection] : cases ) {
      EXPECT_EQ( ProgramHooks::objection( program ), objection ) << program;
      over_.clear();
      EXPECT_EQ( run( { program } ), objection.empty() ? "done" : objection );
   }
   if( geteuid() != 0 ) return;
   ASSERT_EQ( chown( path( "link" ).c_str(), 12345, 0 ), 0 );
   EXPECT_EQ( ProgramHooks::objection( good ), good + ": owned by user 12345" );
}

TEST_F( Programs, thatCannotBeStartedSayWhy ) {
   std::ofstream( path( "noInterpreter" ) ) << "#!/none/sh\n";
   std::ofstream( path( "noProgram" ) ) << "\x7f"
                                        << "ELF, but no more\n";
   for( char const * name : { "noInterpreter", "noProgram" } ) chmod( path( name ).c_str(), 0755 );
   EXPECT_EQ( run( { path( "noInterpreter" ) } ),
              path( "noInterpreter" ) +
                 ": cannot be started: No such file or directory; the interpreter that it names is missing" );
   over_.clear();
   EXPECT_EQ( run( { path( "noProgram" ) } ), path( "noProgram" ) + ": cannot be started: Exec format error" );
}

TEST_F( Programs, leaveNothingRunningHoweverTheyForkAway ) {
   // A daemon as the book has it, one that also hides what it was told, one that ignores a polite word, and a family.
   auto const daemon = script( "[[ $1 = deaf ]] && trap '' TERM\nwhile :; do sleep 0.05; done", "daemon" );
   for( std::string const away :
        { "setsid %s & sleep 0.1", "( setsid -f %s ); sleep 0.1",
          "env -i setsid -f bash -c 'exec >&- 2>&-; exec %s' ; sleep 0.1",
          "setsid bash -c '%s & setsid -f %s; %s' & sleep 0.2", "setsid -f %s deaf; sleep 0.1" } ) {
      SCOPED_TRACE( away );
      std::string text = away;
      for( auto at = text.find( "%s" ); at != std::string::npos; at = text.find( "%s" ) ) text.replace( at, 2, daemon );
      lines_.clear();
      over_.clear();
      EXPECT_EQ( run( { script( text ) } ), "done" );
      EXPECT_THAT( lines_, ElementsAre( HasSubstr( "that it had left running ended" ) ) );
   }
}

TEST_F( Programs, thatAreGivenUpEndPolitelyOrNot ) {
   auto const daemon = script( "trap '' TERM; echo $$ > " + path( "on" ) + "; while :; do sleep 0.05; done", "daemon" );
   // It waits in the shell itself, which has a word in its ear at once: there are two seconds for that, however slow
   // the machine is.
   start( { script( "trap ': > " + path( "said" ) + "; exit' TERM; setsid -f " + daemon + "; sleep 100 & wait" ) } );
   ASSERT_TRUE( await( [this] { return !contents( "on" ).empty(); } ) );
   auto const began = steady_clock::now();
   giveUp( "fabric" );
   EXPECT_THAT( left(), Not( IsEmpty() ) ) << "nobody waits for it";
   EXPECT_TRUE( await( [this] { return exists( "said" ); } ) );
   // The unit's next waits until the daemon has gone, and no longer.
   start( { script( "! kill -0 $( cat " + path( "on" ) + " )", "next" ) } );
   EXPECT_TRUE( await( [this] { return over_.contains( "fabric" ); } ) );
   EXPECT_EQ( over_["fabric"], "done" );
   EXPECT_GT( steady_clock::now() - began, milliseconds( 1900 ) );
   EXPECT_THAT( left(), IsEmpty() );
}

TEST_F( Programs, endWithTheAgent ) {
   // Each says that it is deaf by now: to count processes would count what they start for a moment, too.
   auto const deaf = script( "trap '' TERM; touch " + path( "on" ) + "$1; while :; do sleep 0.05; done", "deaf" );
   start( { deaf, "1" } );
   start( { script( "setsid -f " + deaf + " 2; sleep 100" ) }, "rack" );
   ASSERT_TRUE( await( [this] { return exists( "on1" ) && exists( "on2" ); } ) );
   auto const began = steady_clock::now();
   hooks_.reset();
   EXPECT_LT( steady_clock::now() - began, milliseconds( 30'000 ) ) << "one sleeps for 100 s";
   // The agent goes three seconds later at the latest, and the kernel may take longer than that.
   EXPECT_TRUE( await( [this] { return left().empty(); } ) );
   pass( milliseconds( 50 ) );
   EXPECT_TRUE( over_.empty() ) << "nobody is there to be told";
}

TEST_F( Programs, endWithAnAgentThatIsKilled ) {
   auto const deaf = script( "trap '' TERM; touch " + path( "on" ) + "; while :; do sleep 0.05; done", "deaf" );
   pid_t const agent = fork();
   if( agent == 0 ) {
      loop_.io().notify_fork( boost::asio::execution_context::fork_child );
      start( { script( "setsid -f " + deaf + "; sleep 100" ) } );
      while( !exists( "on" ) ) usleep( 10'000 );
      raise( SIGKILL );
   }
   waitpid( agent, nullptr, 0 );
   ASSERT_TRUE( exists( "on" ) );
   EXPECT_TRUE( await( [this] { return left().empty(); } ) );
}

TEST_F( Programs, thatFloodNeitherFillTheLogNorHoldUpTheLoop ) {
   start( { script( "exec yes" ) } );
   // Of the processor: the time of the day also passes while others have it.
   auto const used = [] {
      timespec time{};
      clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
      return static_cast<double>( time.tv_sec ) + 1e-9 * static_cast<double>( time.tv_nsec );
   };
   double longest = 0;  // s
   double last = used();
   boost::asio::steady_timer tick( loop_.io() );
   std::function<void()> const again = [&] {
      tick.expires_after( milliseconds( 1 ) );
      tick.async_wait( [&]( auto error ) {
         if( error ) return;
         longest = std::max( longest, used() - last );
         last = used();
         again();
      } );
   };
   again();
   ASSERT_TRUE( await( [this] { return !lines_.empty() && lines_.back() == "the rest of its output is dropped"; } ) );
   double const before = used();
   pass( milliseconds( 500 ) );
   EXPECT_LT( used() - before, 0.25 ) << "s of 0.5";
   EXPECT_LT( longest, 0.5 );
   EXPECT_EQ( lines_.size(), 32 * 1024 + 1u );
   EXPECT_EQ( lines_.back(), "the rest of its output is dropped" );
   tick.cancel();
   // One that has written all it wants is over in spite of it.
   giveUp( "fabric" );
   EXPECT_EQ( run( { script( "head -c 1000000 /dev/zero; exit 5" ) } ), "exit status 5" );
}

TEST_F( Programs, ofOneUnitDoNotWaitForThoseOfAnother ) {
   start( { script( "sleep 100", "slow" ) }, "rack" );
   start( { script( "exit 1", "fast" ) } );
   EXPECT_TRUE( await( [this] { return over_.contains( "fabric" ); } ) );
   EXPECT_FALSE( over_.contains( "rack" ) );
}

TEST_F( Programs, areRunWhenWhatLedToThemIsKeptAndStillWanted ) {
   bool kept = false;
   hooks_.reset();
   hooks_.emplace(
      loop_, []( auto const &, auto const & ) {}, [&] { return kept; } );
   auto const hook = script( "touch " + directory_ + "/$MAINT_UNIT" );
   start( { hook } );
   start( { hook }, "rack" );
   pass( milliseconds( 300 ) );
   giveUp( "rack" );
   EXPECT_FALSE( exists( "fabric" ) );
   kept = true;
   EXPECT_TRUE( await( [&] { return over_.contains( "fabric" ); } ) );
   EXPECT_TRUE( exists( "fabric" ) );
   EXPECT_FALSE( exists( "rack" ) );
   loop_.turn( [&] {
      hooks_->run( { "bgp", { hook }, "rack", Maintenance::Unit::MaintenanceOp::exit, 8 }, []( auto const & ) {} );
      hooks_->giveUp( "rack" );
   } );
   pass( milliseconds( 200 ) );
   EXPECT_FALSE( exists( "rack" ) );
}

TEST( HookLines, showTextAndEscapeTheRest ) {
   std::vector<std::string> lines;
   Lines output( [&]( std::string const & line ) { lines.push_back( line ); } );
   output.take( "tab\tü€\xF0\x9F\x98\x80\r\n\n\x1b[31mred\x7f\xc2\x9b" );
   output.take( "\xc3" );  // half a character, as the end of a read may leave it
   output.take( "\xa4\n\xff\xc0\x80\xed\xa0\x80" );
   output.take( std::string( 2000, 'x' ) );
   output.end();
   std::string const xs( 1000, 'x' );
   EXPECT_THAT( lines, ElementsAre( "tab\tü€\xF0\x9F\x98\x80\\x0d", "\\x1b[31mred\\x7f\\xc2\\x9bä",
                                    "\\xff\\xc0\\x80\\xed\\xa0\\x80" + xs.substr( 6 ), xs, "xxxxxx" ) );
}

}  // namespace
}  // namespace Host
