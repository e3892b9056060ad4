// A recording of maintd's own run, on real links with real packets: replayed with its own configuration it takes the
// same decisions at the same times, and with another one says what that would have done.
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <regex>
#include <thread>

#include "Box.h"

namespace Test {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace {

std::string const watchedAndShut =
   "profiles:\n  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 3s }\n"
   "  shut: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s, shutdown: true }\ndefault-profile: quick\n"
   "groups:\n  g: { interfaces: [up1, up2] }\n  s: { interfaces: [up3], profile: shut }\n"
   "units:\n  fabric: { groups: [g, s] }\n";

}  // namespace

class Record : public Box {
 protected:
   // Beside this test, into run.jsonl; comes back when the recording has begun.
   void record( std::string const & options ) const {
      shell( "( " RATEMON_MAINTCTL_PATH " --socket " + path( "maintd.sock" ) + " record " + path( "run.jsonl" ) + " " +
             options + " 2> " + path( "record.err" ) + " & echo $! > " + path( "record.pid" ) +
             "; wait $!; echo $? > " + path( "record.status" ) + " ) > /dev/null &" );
      EXPECT_TRUE(
         eventually( [&] { return contents( path( "run.jsonl" ) ).find( "\"start\"" ) != std::string::npos; } ) );
   }
   void interrupt() const { shell( "kill -INT $(cat " + path( "record.pid" ) + ")" ); }
   void shell( std::string const & command ) const { ASSERT_EQ( run( { "/bin/sh", "-c", command } ).status, 0 ); }
   // Its exit status when it has ended.
   [[nodiscard]] std::string recorded() const {
      EXPECT_TRUE( eventually( [&] { return !contents( path( "record.status" ) ).empty(); }, 40 ) );
      return contents( path( "record.status" ) );
   }
   [[nodiscard]] std::string replayed( std::vector<std::string> const & options ) const {
      std::vector<std::string> command{ RATEMON_MAINTSIM_PATH, "--summary" };
      command.insert( command.end(), options.begin(), options.end() );
      command.push_back( path( "run.jsonl" ) );
      auto const result = run( command );
      EXPECT_EQ( result.status, 0 ) << result.err;
      return result.out;
   }
};

TEST_F( Record, replayedDecidesTheSameAtTheSameTimes ) {
   for( int const number : { 1, 2, 3 } ) link( "up" + std::to_string( number ), number );
   startMaintd( watchedAndShut );
   pid_t const slow = send( "up2", 2, 1e6 );
   record( "" );
   EXPECT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   std::this_thread::sleep_for( std::chrono::milliseconds( 4300 ) );
   stop( slow );
   EXPECT_TRUE( eventually( [&] { return state( "fabric" ) == "inMaintenance"; } ) );
   pid_t const back = send( "up1", 1, 2e6 );
   EXPECT_TRUE( eventually( [&] { return shownUnit( "fabric" ).at( "disturbed" ).as_bool(); } ) );
   stop( back );
   ip( "link set farup2 down" );
   EXPECT_TRUE( eventually( [&] { return maintctl( { "ready", "fabric" } ).status == 0; } ) );
   EXPECT_EQ( maintctl( { "exit", "fabric" } ).status, 0 );
   EXPECT_TRUE( eventually( [&] { return state( "fabric" ) == "active"; } ) );
   interrupt();
   EXPECT_EQ( recorded(), "0\n" );
   EXPECT_THAT( contents( path( "record.err" ) ), ContainsRegex( "recorded [0-9.]+ s, [0-9.]+ kB, in " ) );

   auto const same = replayed( {} );
   std::smatch count;
   ASSERT_TRUE( std::regex_search( same, count, std::regex( "(\\d+) of (\\d+) at the same time" ) ) ) << same;
   EXPECT_EQ( count[1], count[2] ) << same << contents( path( "run.jsonl" ) );
   EXPECT_THAT( same, AllOf( ContainsRegex( "fabric +in maintenance" ), ContainsRegex( "fabric +disturbed" ),
                             ContainsRegex( "up3 +drained" ), ContainsRegex( "fabric +active" ) ) );

   auto const patient = std::regex_replace( watchedAndShut, std::regex( "load-interval: 3s" ), "load-interval: 600s" );
   EXPECT_THAT( replayed( { "--config", file( "other.yaml", patient ), "--html", path( "stay.html" ) } ),
                AllOf( ContainsRegex( "fabric +in maintenance +[0-9:]+ +- +only recorded" ),
                       ContainsRegex( "up3 +drained +[0-9:]+ +[0-9:]+ +same" ) ) );
   EXPECT_THAT( contents( path( "stay.html" ) ), HasSubstr( "Simulated maintenance window" ) );
}

TEST_F( Record, overAFileOnlyWhenAskedAndEarlyWithItsMaintd ) {
   link( "up1", 1 );
   startMaintd(
      "profiles: { p: { threshold: 1kbps } }\ndefault-profile: p\ngroups: { g: { interfaces: [up1] } }\n"
      "units: { fabric: { groups: [g] } }\n" );
   file( "run.jsonl", "mine" );
   auto const refused = maintctl( { "record", path( "run.jsonl" ) } );
   EXPECT_EQ( refused.status, 1 );
   EXPECT_THAT( refused.err, HasSubstr( "is there already; --force" ) );
   EXPECT_EQ( contents( path( "run.jsonl" ) ), "mine" );
   record( "--force" );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   EXPECT_EQ( recorded(), "1\n" );
   EXPECT_THAT( contents( path( "record.err" ) ), HasSubstr( "ends early: maintd stops" ) );
   EXPECT_THAT( contents( path( "run.jsonl" ) ), ::testing::EndsWith( "# The recording ends early: maintd stops.\n" ) );
   EXPECT_THAT( replayed( {} ), HasSubstr( "Recorded on " ) );
}

}  // namespace Test
