// maintctl itself, talking to a daemon that answers what the test says: requests, output, exit status.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include "Answers.h"
#include "api/HttpServer.h"

namespace Cli {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Result {
   int status = -1;
   std::string out;
   std::string err;
};

// "GET /v1/units/fabric" -> the answers that it gets one after the other; the last one stays.
using Script = std::map<std::string, std::vector<Host::HttpAnswer>>;

template<class Answer>
Host::HttpAnswer ok( Answer const & answer ) {
   return { 200, Kel::toJson( Kel::value( answer ) ) };
}

class Program : public ::testing::Test {
 protected:
   Program() {
      char name[] = "/tmp/ratemon-maintctl-XXXXXX";
      directory_ = ::mkdtemp( name );
   }
   ~Program() override {
      if( daemon_ > 0 ) {
         ::kill( daemon_, SIGKILL );
         ::waitpid( daemon_, nullptr, 0 );
      }
      std::filesystem::remove_all( directory_ );
   }

   void daemonAnswers( Script script ) {
      std::array<int, 2> listening{};
      ASSERT_EQ( ::pipe( listening.data() ), 0 );
      daemon_ = ::fork();
      if( daemon_ == 0 ) serve( std::move( script ), listening[1] );
      ::close( listening[1] );
      char ready = 0;
      EXPECT_EQ( ::read( listening[0], &ready, 1 ), 1 );
      ::close( listening[0] );
   }

   [[nodiscard]] Result maintctl( std::vector<std::string> arguments ) const {
      arguments.insert( arguments.begin(), { RATEMON_MAINTCTL_PATH, "--socket", path( "socket" ) } );
      std::vector<char *> taken;
      for( std::string & argument : arguments ) taken.push_back( argument.data() );
      taken.push_back( nullptr );
      pid_t const child = ::fork();
      if( child == 0 ) {
         ::dup2( ::creat( path( "out" ).c_str(), 0600 ), STDOUT_FILENO );
         ::dup2( ::creat( path( "err" ).c_str(), 0600 ), STDERR_FILENO );
         ::execv( taken.front(), taken.data() );
         ::_exit( 127 );
      }
      int status = 0;
      ::waitpid( child, &status, 0 );
      return { WIFEXITED( status ) ? WEXITSTATUS( status ) : -1, contents( "out" ), contents( "err" ) };
   }

   [[nodiscard]] std::string path( char const * name ) const { return directory_ + "/" + name; }
   [[nodiscard]] std::string contents( char const * name ) const {
      std::ostringstream text;
      text << std::ifstream( path( name ) ).rdbuf();
      return text.str();
   }
   // What the daemon was asked for, a line each.
   [[nodiscard]] std::string requests() const { return contents( "requests" ); }

 private:
   [[noreturn]] void serve( Script script, int listening ) const {
      ::prctl( PR_SET_PDEATHSIG, SIGKILL );
      Kel::ActivityLoop activityLoop( Kel::Ptr<Kel::Clock>( new Kel::RealClock ) );
      Host::AsioLoop loop( activityLoop );
      Host::HttpServer const server( loop, path( "socket" ), [&]( Host::HttpRequest const & request ) {
         std::string const asked = request.method + " " + request.target;
         std::ofstream( path( "requests" ), std::ios::app ) << asked << "\n";
         auto const found = script.find( asked );
         if( found == script.end() ) return Host::HttpAnswer{ 404, "{\"error\": \"not in the script\"}" };
         Host::HttpAnswer const answer = found->second.front();
         if( found->second.size() > 1 ) found->second.erase( found->second.begin() );
         return answer;
      } );
      static_cast<void>( !::write( listening, "x", 1 ) );
      loop.run();
      ::_exit( 0 );
   }

   std::string directory_;
   pid_t daemon_ = 0;
};

Service::UnitAnswer unit( char const * state, char const * stage, char const * verdict, bool settled ) {
   Service::AccountAnswer account;
   account.interface = "up1";
   account.verdict = verdict;
   account.settled = settled;
   account.why = "a reason";
   Service::UnitAnswer answer;
   answer.unit = "fabric";
   answer.state = state;
   answer.generation = 4;
   answer.ready = settled;
   if( *stage ) answer.stage = stage;
   answer.interfaces = { account };
   return answer;
}

Service::WindowAnswer windowWith( char const * stage, char const * result ) {
   Service::WindowStageAnswer run;
   run.stage = stage;
   run.operation = "enter";
   run.result = result;
   Service::WindowAnswer window;
   window.unit = "fabric";
   window.stages = { run };
   return window;
}

Host::HttpAnswer started( char const * verb ) {
   return ok( Service::RequestAnswer{ verb, "fabric", "started", 4, {} } );
}

TEST_F( Program, aRefusalIsStatusFourAndALineForEachReason ) {
   daemonAnswers( { { "POST /v1/units/fabric/enter?dry-run=1&without=eth0&without=a%26b",
                      { { 409, R"({"error": "one; two", "why": ["one", "two"]})" } } },
                    { "POST /v1/reload", { { 409, R"({"error": "busy"})" } } } } );
   auto const entered = maintctl( { "enter", "--without", "eth0", "fabric", "--without", "a&b", "--dry-run" } );
   EXPECT_EQ( entered.status, 4 );
   EXPECT_EQ( entered.err, "maintctl: one\nmaintctl: two\n" );
   auto const reloaded = maintctl( { "reload" } );
   EXPECT_EQ( reloaded.status, 4 );
   EXPECT_EQ( reloaded.err, "maintctl: busy\n" );
   // A wait for what is not begun would never end.
   EXPECT_EQ( maintctl( { "enter", "fabric", "--dry-run", "--wait" } ).status, 2 );
}

TEST_F( Program, waitingTellsEachChangeOnce ) {
   auto const loud = ok( unit( "entering", "ratemon", "loud", false ) );
   daemonAnswers( { { "POST /v1/units/fabric/enter", { started( "enter" ) } },
                    { "GET /v1/units/fabric",
                      { loud, loud, ok( unit( "entering", "verify", "quiet", false ) ),
                        ok( unit( "inMaintenance", "", "quiet", true ) ) } },
                    { "GET /v1/windows/fabric/last", { ok( windowWith( "verify", "done" ) ) } } } );
   auto const entered = maintctl( { "enter", "fabric", "--wait" } );
   EXPECT_EQ( entered.status, 0 );
   // The times in front depend on how busy this machine is.
   EXPECT_EQ( std::regex_replace( entered.out, std::regex( "  [0-9]+ s  " ), "  - " ),
              "unit fabric entering maintenance, generation 4\n"
              "  - entering, stage ratemon, 0 of 1 settled; up1: loud, a reason\n"
              "  - entering, stage verify, 0 of 1 settled; up1: quiet, a reason\n"
              "  - inMaintenance, 1 of 1 settled\n"
              "unit fabric is inMaintenance, generation 4\n"
              "ready\n" );
   EXPECT_EQ( entered.err, "" );
}

TEST_F( Program, anEntryPastItsDeadlineIsNotSoldAsProven ) {
   daemonAnswers( { { "POST /v1/units/fabric/enter", { started( "enter" ) } },
                    { "GET /v1/units/fabric", { ok( unit( "inMaintenance", "", "loud", false ) ) } },
                    { "GET /v1/windows/fabric/last", { ok( windowWith( "verify", "timed out" ) ) } } } );
   auto const entered = maintctl( { "enter", "fabric", "--wait" } );
   EXPECT_THAT( entered.out, HasSubstr( "not ready: 1 of 1 interface not settled\n" ) );
   EXPECT_EQ( entered.err, "maintctl: it got there UNPROVEN: stage verify: timed out\n" );
}

TEST_F( Program, aUnitThatIsBroughtBackEndsTheWaitWithTheReason ) {
   daemonAnswers(
      { { "POST /v1/units/fabric/enter", { started( "enter" ) } },
        { "GET /v1/units/fabric",
          { ok( unit( "entering", "ratemon", "loud", false ) ), ok( unit( "active", "", "loud", false ) ) } },
        { "GET /v1/windows/fabric/last", { ok( windowWith( "ratemon", "timed out" ) ) } } } );
   auto const entered = maintctl( { "enter", "fabric", "--wait" } );
   EXPECT_EQ( entered.status, 1 );
   EXPECT_EQ( entered.err, "maintctl: unit fabric is now active: stage ratemon: timed out\n" );
}

TEST_F( Program, readyIsTheExitStatus ) {
   Service::ReadyAnswer answer{ "fabric", true, {}, false, 1000, {} };
   auto const yes = ok( answer );
   answer.ready = false;
   daemonAnswers( { { "GET /v1/units/fabric/ready", { yes, yes, ok( answer ), ok( answer ) } } } );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 0 );
   EXPECT_EQ( maintctl( { "ready", "fabric", "--json" } ).status, 0 );
   auto const unready = maintctl( { "ready", "fabric", "--json" } );
   EXPECT_EQ( unready.status, 1 );
   EXPECT_THAT( unready.out, StartsWith( "{\"unit\": \"fabric\", \"ready\": false" ) );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
   EXPECT_EQ( maintctl( { "ready", "nowhere" } ).status, 1 );
}

TEST_F( Program, aReportIsTheWindowThatWasAskedFor ) {
   daemonAnswers( { { "GET /v1/windows/fabric/3", { ok( windowWith( "verify", "done" ) ) } } } );
   EXPECT_THAT( maintctl( { "report", "fabric", "--generation", "3" } ).out, HasSubstr( "verify  enter" ) );
   EXPECT_EQ( maintctl( { "report", "fabric", "--generation", "3", "--html", path( "page" ) } ).status, 0 );
   EXPECT_THAT( contents( "page" ), HasSubstr( "fabric" ) );
   auto const unwritten = maintctl( { "report", "fabric", "--generation", "3", "--html", path( "none/page" ) } );
   EXPECT_EQ( unwritten.status, 1 );
   EXPECT_THAT( unwritten.err, HasSubstr( "cannot be written: No such file or directory" ) );
   EXPECT_EQ( maintctl( { "report", "fabric" } ).status, 1 );
   EXPECT_THAT( requests(), HasSubstr( "GET /v1/windows/fabric/last\n" ) );
}

// By the maintd beside it; that no daemon is there does not matter.
TEST_F( Program, checkConfigAnswersAsMaintdDoes ) {
   std::ofstream( path( "bad" ) ) << "units: 3\n";
   auto const bad = maintctl( { "check-config", path( "bad" ) } );
   EXPECT_EQ( bad.status, 2 );
   EXPECT_THAT( bad.err, StartsWith( path( "bad" ) + ":1:" ) );
   std::ofstream( path( "good" ) ) << "profiles: { p: { threshold: 1kbps } }\ndefault-profile: p\n"
                                      "groups: { g: { interfaces: [no-such-link] } }\nunits: { u: { groups: [g] } }\n";
   auto const good = maintctl( { "check-config", path( "good" ) } );
   EXPECT_EQ( good.status, 0 );
   EXPECT_THAT( good.err, StartsWith( "warning: unit u: no-such-link: " ) );
   EXPECT_EQ( good.out, path( "good" ) + " holds: 1 unit, 1 warning\n" );
}

}  // namespace
}  // namespace Cli
