// What an operator learns of a maintd that runs, and of one that has died: traces and the dump.
#include <gmock/gmock.h>

#include <csignal>
#include <regex>

#include "Box.h"

namespace Test {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr char const * ringConfig = R"(
profiles:
  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 3s }
default-profile: quick
groups:
  g: { interfaces: [up1] }
units:
  fabric: { groups: [g] }
)";

// It is reckoned from two clocks that are read one after the other, and differs by what has passed between.
std::string withoutTimeOfDay( std::string const & lines ) {
   return std::regex_replace( lines, std::regex( "20[0-9-]{8} [0-9:]{8}\\.[0-9]{3}" ), "" );
}

}  // namespace

class Trace : public Box {
 protected:
   void SetUp() override {
      Box::SetUp();
      link( "up1", 1 );
   }
   // Until the link counts as up, entering monitors nothing.
   void start( std::vector<std::string> const & more = {} ) {
      startMaintd( ringConfig, more );
      ASSERT_TRUE( eventually( [&] { return shown( "up1" ).at( "operStatus" ).as_string() == "up"; } ) );
   }
   // One line per message.
   [[nodiscard]] std::string shownTrace( std::vector<std::string> more = {} ) const {
      more.insert( more.begin(), "trace" );
      auto const shown = maintctl( more );
      EXPECT_EQ( shown.status, 0 ) << shown.err;
      return shown.out;
   }
};

TEST_F( Trace, outlivesAKilledMaintdAndItsNextStart ) {
   auto const none = maintctl( { "trace" } );
   EXPECT_EQ( none.status, 1 );
   EXPECT_THAT( none.err, HasSubstr( "there is no trace at " + path( "maintd.trace" ) ) );

   start();
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( stopMaintd( SIGKILL ), -1 );
   std::string const told = shownTrace();
   std::string const died = withoutTimeOfDay( told );
   // Seconds since boot, date and time of day, level, text.
   EXPECT_THAT( told,
                ContainsRegex( "^ *[0-9]+\\.[0-9]{6}  20[0-9-]{8} [0-9:]{8}\\.[0-9]{3}  3  maintd starts: socket" ) );
   EXPECT_LT( died.find( "created new mon intf status for intf up1" ), died.find( "Notifying stage completion" ) );
   EXPECT_THAT( died, Not( HasSubstr( "maintd stops" ) ) );

   start();
   EXPECT_EQ( withoutTimeOfDay( shownTrace( { "--file", path( "maintd.trace.1" ) } ) ), died );
   // One that finds the socket taken leaves the trace of the one that has it alone.
   EXPECT_EQ(
      run( { RATEMON_MAINTD_PATH, "--config", path( "maintd.yaml" ), "--socket", path( "maintd.sock" ) } ).status, 1 );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   EXPECT_EQ( withoutTimeOfDay( shownTrace( { "--file", path( "maintd.trace.1" ) } ) ), died );
   std::string last = shownTrace( { "--json" } );
   last.pop_back();
   auto const message = boost::json::parse( last.substr( last.rfind( '\n' ) + 1 ) ).as_object();
   EXPECT_EQ( message.at( "text" ).as_string(), "maintd stops" );
   EXPECT_EQ( message.at( "level" ).to_number<int>(), 3 );
   EXPECT_GT( message.at( "t" ).to_number<double>(), 0 );
}

TEST_F( Trace, isFollowedAcrossARestart ) {
   std::string const out = path( "followed" );
   start( { "--trace-file", path( "box" ) } );
   auto const follower = run( { "/bin/sh", "-c",
                                "timeout 300 " RATEMON_MAINTCTL_PATH " trace --follow --file " + path( "box" ) + " > " +
                                   out + " 2>&1 & echo $!" } );
   auto const followed = [&]( char const * text ) {
      return eventually( [&] { return contents( out ).find( text ) != std::string::npos; } );
   };
   EXPECT_TRUE( followed( "maintd starts" ) );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   EXPECT_TRUE( followed( "started traffic monitoring for unit fabric" ) );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   start( { "--trace-file", path( "box" ) } );
   EXPECT_TRUE( followed( "started again" ) );
   EXPECT_TRUE( eventually( [&] {
      std::string const text = contents( out );
      return text.rfind( "maintd starts" ) > text.find( "started again" );
   } ) );
   ::kill( std::stoi( follower.out ), SIGTERM );
   std::string const text = contents( out );
   EXPECT_LT( text.find( "maintd stops" ), text.find( "started again" ) );
}

TEST_F( Trace, levelsAreSwitchedWhileMaintdRuns ) {
   start();
   auto const entering = [&] { return contents( path( "maintd.log" ) ).find( "handleUnitMaintenanceEnter" ); };
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   ASSERT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( entering(), std::string::npos );
   EXPECT_EQ( maintctl( { "trace", "--levels", "1,2,4" } ).out, "MaintenanceModeRateMonSm: 1 2 4\n" );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   EXPECT_TRUE( eventually( [&] { return entering() != std::string::npos; } ) );
   EXPECT_THAT(
      contents( path( "maintd.log" ) ),
      ContainsRegex( "[0-9]+\\.[0-9]{6} MaintenanceModeRateMonSm 2 handleUnitMaintenanceEnter: unit - fabric" ) );
   EXPECT_EQ( maintctl( { "trace", "--levels", "none" } ).out, "MaintenanceModeRateMonSm: none\n" );
   auto const bad = maintctl( { "trace", "--levels", "1,high" } );
   EXPECT_EQ( bad.status, 2 );
   EXPECT_THAT( bad.err, HasSubstr( "\"high\" is no level" ) );

   auto const dump = maintctl( { "dump" } );
   EXPECT_EQ( dump.status, 0 );
   EXPECT_THAT( dump.out, HasSubstr( "RateMonSm:\n" ) );
   EXPECT_THAT( dump.out, HasSubstr( "numMaintEnter: 2\n" ) );
}

}  // namespace Test
