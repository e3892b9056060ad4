// Programs around the stages of a running maintd: each way to go wrong, what the window says of it, and that nothing of
// them is left.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Box.h"
#include "net/TrustedPlace.h"

namespace Test {

using ::testing::HasSubstr;

class HooksOfMaintd : public Box {
 protected:
   void SetUp() override {
      Box::SetUp();
      struct stat root {};
      if( ::stat( "/", &root ) != 0 || root.st_uid != 0 ) {
         GTEST_SKIP()
            << "in the namespace of a user who is not root nobody can tell root's files from a stranger's, so "
               "maintd runs no hook";
      }
      link( "up1", 1 );
      place_ = trustedPlace();
      if( place_.empty() ) GTEST_SKIP() << "the tree lies below a directory that others may write to: no hook is run";
   }
   void TearDown() override {
      if( !place_.empty() ) std::filesystem::remove_all( place_ );
   }

   // Each unit's hook does what the unit is called.
   void writeHook() const {
      std::ofstream( hook() ) << "#!/bin/bash\n"
                                 "case $MAINT_OP-$MAINT_UNIT in\n"
                                 "enter-fails) echo 'no neighbour answers'; exit 3 ;;\n"
                                 "enter-hangs) trap '' TERM; while :; do sleep 0.1; done ;;\n"
                                 "enter-floods) yes; exit 4 ;;\n"
                                 "enter-forks) setsid -f env -i \"$0\" away ;;\n"
                                 "esac\n"
                                 "[[ $1 != away ]] || while :; do sleep 0.1; done\n";
      chmod( hook().c_str(), 0755 );
   }
   [[nodiscard]] std::string hook() const { return place_ + "/hook"; }
   [[nodiscard]] std::string config( std::string const & program, std::string const & limits ) const {
      std::string text =
         "profiles:\n  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 0s }\ndefault-profile: quick\n"
         "groups:\n  g: { interfaces: [up1] }\nunits:\n";
      for( char const * unit : { "fails", "hangs", "floods", "forks" } ) {
         text += std::string( "  " ) + unit + ": { groups: [g] }\n";
      }
      return text + "stages:\n  maintEnter:\n    - { name: bgp, run: [" + program + ", enter], " + limits +
             " }\n    - { name: ratemon }\n    - { name: verify }\n"
             "  maintExit:\n    - { name: ratemon }\n    - { name: bgp, run: [" +
             hook() + ", exit] }\n";
   }
   // How the first stage of the unit's last stay went.
   [[nodiscard]] std::string firstStage( std::string const & unit ) const {
      auto const report = boost::json::parse( maintctl( { "report", unit, "--json" } ).out ).as_object();
      auto const & stage = report.at( "stages" ).as_array().at( 0 ).as_object();
      return text( stage, "stage" ) + " " + text( stage, "result" ) + ": " + text( stage, "why" );
   }
   [[nodiscard]] bool nothingIsLeft() const {
      for( auto const & entry : std::filesystem::directory_iterator( "/proc" ) ) {
         std::stringstream text;
         text << std::ifstream( entry.path() / "cmdline" ).rdbuf();
         if( text.str().find( hook() ) != std::string::npos ) return false;
      }
      return true;
   }

 private:
   std::string place_;
};

TEST_F( HooksOfMaintd, failTheirStageAndLeaveNothingRunning ) {
   writeHook();
   startMaintd( config( hook(), "timeout: 5s, on-timeout: continue" ) );
   // All at once, because some take all of their time.
   for( char const * unit : { "fails", "hangs", "floods", "forks" } ) {
      EXPECT_EQ( maintctl( { "enter", unit } ).status, 0 ) << unit;
   }
   for( char const * unit : { "fails", "hangs", "floods", "forks" } ) {
      EXPECT_EQ( maintctl( { "enter", unit, "--wait", "--timeout", "60s" } ).status, 0 ) << unit;
   }
   EXPECT_EQ( firstStage( "fails" ), "bgp failed: exit status 3: no neighbour answers" );
   EXPECT_EQ( firstStage( "hangs" ), "bgp timed out: not over after 5 s" );
   EXPECT_EQ( firstStage( "floods" ), "bgp timed out: not over after 5 s" );
   EXPECT_EQ( firstStage( "forks" ), "bgp done: " );
   EXPECT_TRUE( eventually( [this] { return nothingIsLeft(); } ) );
   EXPECT_THAT( maintctl( { "report", "fails" } ).out, HasSubstr( "no neighbour answers" ) );
   EXPECT_THAT( contents( path( "maintd.log" ) ), HasSubstr( "bgp of unit fails: no neighbour answers\n" ) );
   EXPECT_THAT( contents( path( "maintd.log" ) ), HasSubstr( "the rest of its output is dropped\n" ) );
   for( char const * unit : { "fails", "hangs", "floods", "forks" } ) {
      EXPECT_EQ( maintctl( { "exit", unit, "--wait", "--timeout", "60s" } ).status, 0 ) << unit;
   }

   changeConfig( config( hook() + "-that-is-missing", "timeout: 1s" ) );
   EXPECT_EQ( maintctl( { "enter", "fails", "--wait", "--timeout", "60s" } ).status, 1 );
   EXPECT_TRUE( eventually( [this] { return state( "fails" ) == "active"; } ) );
   EXPECT_EQ( firstStage( "fails" ), "bgp failed: " + hook() + "-that-is-missing: no such file" );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
}

TEST_F( HooksOfMaintd, endWithIt ) {
   writeHook();
   startMaintd( config( hook(), "on-timeout: hold" ) );
   for( int const signal : { SIGTERM, SIGKILL } ) {
      ASSERT_EQ( maintctl( { "enter", "hangs" } ).status, 0 );
      ASSERT_TRUE( eventually( [this] { return !nothingIsLeft(); } ) );
      stopMaintd( signal );
      EXPECT_TRUE( eventually( [this] { return nothingIsLeft(); } ) );
      if( signal == SIGTERM ) startMaintd( config( hook(), "on-timeout: hold" ) );
   }
}

}  // namespace Test
