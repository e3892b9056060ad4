// maintctl itself, talking to a daemon that answers what the test says: requests, output, exit status.
#include <csignal>
#include <filesystem>
#include <fstream>

#include "Maintctl.h"
#include "brisklog/Brisklog.h"

namespace Cli {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using Program = Maintctl;

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

Reply started( char const * verb ) { return ok( Service::RequestAnswer{ verb, "fabric", "started", 4, {} } ); }

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
   // One that is misspelt, or a variable that was not set.
   for( auto const & words : { Words{ "enter", "" }, Words{ "enter", "fabric", "--without" } } ) {
      EXPECT_EQ( maintctl( words ).status, 2 ) << words.front();
   }
   // A wait for what is not begun would never end.
   EXPECT_EQ( maintctl( { "enter", "fabric", "--dry-run", "--wait" } ).status, 2 );
}

TEST_F( Program, whatIsLeftOutOfAnEntryUnderWayIsSaid ) {
   auto const already = [this]( std::vector<Service::Text> const & why, Words const & more ) {
      Service::RequestAnswer const answer{ "enter", "fabric", "already", 4, why };
      std::string const asked = why.empty() ? "" : "without=up1";
      std::string const dry = more.empty() ? "" : "dry-run=1&";
      daemonAnswers(
         { { "POST /v1/units/fabric/enter" + ( asked.empty() ? "" : "?" + dry + asked ), { ok( answer ) } } } );
      Words words{ "enter", "fabric" };
      if( !why.empty() ) words.insert( words.end(), { "--without", "up1" } );
      words.insert( words.end(), more.begin(), more.end() );
      return maintctl( words ).out;
   };
   std::string const there = "unit fabric is in or entering maintenance already";
   std::string const remark = "up1: left out of the proof";
   EXPECT_EQ( already( {}, {} ), there + "\n" );
   EXPECT_EQ( already( { remark.c_str() }, {} ), there + "; its proof goes on without:\n  " + remark + "\n" );
   EXPECT_EQ( already( { remark.c_str() }, { "--dry-run" } ),
              there + "; its proof would go on without:\n  " + remark + "\n" );
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
   EXPECT_THAT( entered.out, MatchesRegex( "unit fabric entering maintenance, generation 4\n"
                                           " +[0-9]+ s  entering, stage ratemon, 0 of 1 settled\n"
                                           " +[0-9]+ s  up1: loud, a reason\n"
                                           " +[0-9]+ s  up1: quiet, a reason\n"
                                           " +[0-9]+ s  entering, stage verify, 0 of 1 settled\n"
                                           " +[0-9]+ s  up1: proven quiet, a reason\n"
                                           " +[0-9]+ s  in maintenance, 1 of 1 settled\n"
                                           "unit fabric is in maintenance, generation 4\n"
                                           "ready\n" ) );
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

// So that a guard can tell the link that the caller comes in by.
TEST_F( Program, anEntryTellsFromWhereItIsAskedFor ) {
   std::string const enter = "POST /v1/units/a%2Fb/enter";
   daemonAnswers( { { enter, { started( "enter" ) } },
                    { enter + "?yes=1&session=2001%3Adb8%3A%3A7", { started( "enter" ) } },
                    { enter + "?session=192.0.2.7", { started( "enter" ) } } } );
   for( char const * local : { "SSH_CONNECTION=", "SSH_CONNECTION=UNKNOWN 65535 UNKNOWN 65535" } ) {
      EXPECT_EQ( maintctl( { "enter", "a/b" }, { .environment = { local } } ).status, 0 );
   }
   EXPECT_EQ(
      maintctl( { "enter", "a/b", "--yes" }, { .environment = { "SSH_CONNECTION=2001:db8::7 50022 2001:db8::1 22" } } )
         .status,
      0 );
   // sudo takes the variable away; whoever called it has it still.
   std::string const script =
      "env -u SSH_CONNECTION " RATEMON_MAINTCTL_PATH " --socket " + path( "socket" ) + " enter a/b; exit $?";
   EXPECT_EQ( ::setenv( "SSH_CONNECTION", "192.0.2.7 50022 192.0.2.1 22", 1 ), 0 );
   std::string const quoted = "sh -c '" + script + "' > /dev/null; exit $?";
   EXPECT_EQ( std::system( quoted.c_str() ), 0 );
   EXPECT_EQ( ::unsetenv( "SSH_CONNECTION" ), 0 );
   EXPECT_EQ( requests(), enter + "\n" + enter + "\n" + enter + "?yes=1&session=2001%3Adb8%3A%3A7\n" + enter +
                             "?session=192.0.2.7\n" );
}

// By the maintd beside it; that no daemon is there does not matter.
TEST_F( Program, checkConfigAnswersAsMaintdDoes ) {
   std::ofstream( path( "bad" ) ) << "units: 3\n";
   auto const bad = maintctl( { "check-config", path( "bad" ) } );
   EXPECT_EQ( bad.status, 2 );
   EXPECT_THAT( bad.err, StartsWith( path( "bad" ) + ":1:" ) );
   std::ofstream( path( "good" ) ) << "profiles: { p: { threshold: 1kbps } }\ndefault-profile: p\n"
                                      "groups: { g: { interfaces: [no-such-link, fifteen-is-most, sixteen-too-long] } "
                                      "}\nunits: { u: { groups: [g] } }\n";
   auto const good = maintctl( { "check-config", path( "good" ) } );
   EXPECT_EQ( good.status, 0 );
   EXPECT_THAT(
      good.err,
      StartsWith( "warning: sixteen-too-long: no link can ever have this name: it has 16 bytes, and 15 are the "
                  "most\nwarning: unit u: no-such-link: " ) );
   EXPECT_EQ( good.out, path( "good" ) + " holds: 1 unit, 4 warnings\n" );
}

// With a program of its name in place of maintd, beside maintctl or in the PATH: what it is called with, its output and
// its status.
TEST_F( Program, releaseIsMaintdsOwn ) {
   std::filesystem::create_directory( path( "bin" ) );
   std::filesystem::copy( RATEMON_MAINTCTL_PATH, path( "bin/maintctl" ) );
   std::ofstream( path( "maintd" ) ) << "#!/bin/sh\necho \"$0:\" \"$@\"; kill -PIPE $$; exit 3\n";
   std::filesystem::permissions( path( "maintd" ), std::filesystem::perms::owner_all );
   std::string const libraries = std::filesystem::path( RATEMON_MAINTCTL_PATH ).parent_path().string() + "/lib";
   Surroundings const alone{ .environment = { "LD_LIBRARY_PATH=" + libraries, "PATH=" + path( "" ) + ":/usr/bin:/bin" },
                             .program = path( "bin/maintctl" ) };
   auto const inPath = maintctl( { "release", "--all" }, alone );
   // Ended by the signal that maintctl ignores for itself only.
   EXPECT_EQ( inPath.status, -1 );
   EXPECT_THAT( inPath.out, HasSubstr( "maintd: --release --all\n" ) );
   std::ofstream( path( "bin/maintd" ) ) << "#!/bin/sh\necho \"$@\"; exit 3\n";
   std::filesystem::permissions( path( "bin/maintd" ), std::filesystem::perms::owner_all );
   auto const beside = maintctl( { "release", "--state", "/var/s t", "eth0", "up 1" }, alone );
   EXPECT_EQ( beside.status, 3 );
   EXPECT_EQ( beside.out, "--release --state /var/s t -- eth0 up 1\n" );
   EXPECT_EQ( maintctl( { "release" }, alone ).status, 2 );
   EXPECT_EQ( maintctl( { "release", "--all", "eth0" }, alone ).status, 2 );
   std::filesystem::remove( path( "bin/maintd" ) );
   std::filesystem::remove( path( "maintd" ) );
   auto const none = maintctl( { "release", "--all" }, alone );
   EXPECT_EQ( none.status, 1 );
   EXPECT_THAT( none.err, StartsWith( "maintctl: maintd, which knows which links it holds, cannot be run: " ) );
}

// Each ends with status 2, asks the daemon for nothing, and says in a sentence what is wrong.
TEST_F( Program, helpIsACommandToo ) {
   std::pair<Words, Words> const pairs[] = {
      { { "help" }, { "--help" } }, { { "help", "enter" }, { "enter", "--help" } }, { { "help", "x" }, { "--help" } } };
   for( auto const & [asked, meant] : pairs ) {
      auto const help = maintctl( asked );
      EXPECT_EQ( help.status, 0 );
      EXPECT_NE( help.out, "" );
      EXPECT_EQ( help.out, maintctl( meant ).out );
   }
}

TEST_F( Program, mistakesAreToldInASentence ) {
   struct {
      Words words;
      char const * said;
   } const cases[] = {
      { {}, "which command? They are: status, units, " },
      { { "statsu" }, "there is no command \"statsu\"; did you mean \"status\"?" },
      { { "frobnicate", "fabric" }, "there is no command \"frobnicate\"\n" },
      { { "status", "--jsno" }, "maintctl status has no option \"--jsno\"; did you mean \"--json\"?" },
      { { "status", "--sokcet=x" }, "maintctl status has no option \"--sokcet\"; did you mean \"--socket\"?" },
      { { "units", "fabric" }, "maintctl units has no use for \"fabric\"" },
      { { "enter" }, "enter needs UNIT, the unit's name: maintctl enter UNIT" },
      { { "enter", "" }, "UNIT is empty" },
      { { "status", "a\nb" }, "UNIT has control characters: \"a?b\"" },
      { { "explain", std::string( 300, 'x' ) }, "INTERFACE is longer than any name may be: 300 bytes, and 63 are" },
      { { "enter", "u", "--wait", "--timeout" }, "--timeout needs a value" },
      { { "enter", "u", "--wait", "--timeout", "-1" }, "--timeout '-1' is negative" },
      { { "enter", "u", "--wait", "--timeout", "99999999999999d" },
        "--timeout '99999999999999d' is longer than 136 y" },
      { { "enter", "u", "--wait", "--timeout", "soon" }, "--timeout 'soon' is not a number with a unit; write a dura" },
      { { "enter", "u", "--timeout", "5m" }, "--timeout only goes with --wait" },
      { { "enter", "u", "--wait", "--dry-run" }, "--wait and --dry-run do not go together" },
      { { "units", "--socket", "a" }, "--socket is given more than once" },
      { { "report", "u", "--generation", "-1" }, "--generation is a whole number from 0 to 4294967295, not \"-1\"" },
      { { "release" }, "release needs INTERFACE or --all" },
      { { "trace", "-n", "many" }, "-n is a whole number" },
      { { "trace", "--since", "tomorrow" }, "--since is how long ago, as 5m, or a time, as 14:05 or " },
      { { "trace", "--levels", "1,x" }, "--levels \"x\" is no level; levels are numbers from 0 to 31" },
   };
   daemonAnswers( {} );
   for( auto const & [words, said] : cases ) {
      auto const result = maintctl( words );
      EXPECT_EQ( result.status, 2 ) << said;
      EXPECT_THAT( result.err, StartsWith( std::string( "maintctl: " ) + said ) );
      EXPECT_EQ( result.out, "" ) << said;
   }
   EXPECT_EQ( requests(), "" );
   // As people write them.
   daemonAnswers( { { "POST /v1/units/u/exit", { started( "exit" ) } },
                    { "GET /v1/units/u", { ok( unit( "active", "", "quiet", true ) ) } } } );
   for( char const * time : { "5m", "1min30s", "10", "1d" } ) {
      EXPECT_EQ( maintctl( { "exit", "u", "--wait", "--timeout", time } ).status, 0 );
   }
}

TEST_F( Program, whatLiesBelowAPathIsListed ) {
   Reply const below{ 200, R"({"below": ["interface", "unit"]})" };
   daemonAnswers( { { "GET /v1/state", { below } },
                    { "GET /v1/state/maintenance", { below } },
                    { "GET /v1/state/record", { { 200, R"({"below": 3})" } } } } );
   EXPECT_EQ( maintctl( { "get", "/maintenance/" } ).out, "maintenance/interface\nmaintenance/unit\n" );
   EXPECT_EQ( maintctl( { "get" } ).out, "interface\nunit\n" );
   EXPECT_EQ( maintctl( { "get", "" } ).out, "interface\nunit\n" );
   EXPECT_EQ( maintctl( { "get", "record" } ).out, "{\"below\": 3}" );
   EXPECT_EQ( maintctl( { "get", "maintenance", "--json" } ).out, below.body );
}

TEST_F( Program, aTraceCanBeShortened ) {
   Brisklog::ringIs( Brisklog::RingFile::create( path( "socket.trace" ), 32768 ) );
   for( char const * message : { "first", "second", "third" } ) BRISKLOG( 3, "{}", message );
   Brisklog::ringIs( Brisklog::RingFile::anonymous( 32768 ) );
   auto const lines = [&]( Words const & words ) {
      std::string const out = maintctl( words ).out;
      return std::count( out.begin(), out.end(), '\n' );
   };
   EXPECT_THAT( maintctl( { "trace", "-n", "1" } ).out, ::testing::EndsWith( "  3  third\n" ) );
   EXPECT_EQ( lines( { "trace", "-n", "2" } ), 2 );
   EXPECT_EQ( lines( { "trace", "-n", "9" } ), 3 );
   EXPECT_EQ( lines( { "trace", "--since", "2001-01-01 12:00" } ), 3 );
   EXPECT_EQ( lines( { "trace", "--since", "0s" } ), 0 );
   EXPECT_EQ( lines( { "trace", "--since", "2100-01-01" } ), 0 );
   EXPECT_EQ( lines( { "trace", "--since", "2001-01-01", "-n", "1" } ), 1 );
}

}  // namespace
}  // namespace Cli
