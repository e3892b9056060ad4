// What an operator's configuration does to a running maintd: read again by SIGHUP, and deadlines of the proof.
#include <gmock/gmock.h>

#include <csignal>

#include "Box.h"

namespace Test {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace {

// `onTimeout`: of a proof that may take a second.
std::string stagesConfig( std::string const & threshold, std::string const & onTimeout = "" ) {
   std::string const verify = onTimeout.empty() ? "" : ", timeout: 1s, on-timeout: " + onTimeout;
   return "profiles:\n  quick: { threshold: " + threshold +
          ", sample-interval: 1s, load-interval: 2s }\n"
          "default-profile: quick\ngroups:\n  g: { interfaces: [up1] }\nunits:\n  fabric: { groups: [g] }\n"
          "stages:\n  maintEnter:\n    - { name: ratemon }\n    - { name: verify" +
          verify + " }\n  maintExit:\n    - { name: ratemon }\n";
}

}  // namespace

class Stages : public Box {
 protected:
   void SetUp() override {
      Box::SetUp();
      link( "up1", 1 );
   }
   // What maintd has written since it was last asked has this in it, or soon does.
   [[nodiscard]] bool logSays( std::string const & text ) {
      return eventually( [&] {
         auto const found = contents( path( "maintd.log" ) ).find( text, read_ );
         if( found != std::string::npos ) read_ = found + text.size();
         return found != std::string::npos;
      } );
   }
   [[nodiscard]] std::string reported() const { return maintctl( { "report", "fabric" } ).out; }
   // Entering at full traffic, with the rate monitor's own stage done: that does not wait for a link that flaps.
   // Somebody waits for the end of it all the while.
   void enterWithTraffic() {
      beginMaintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } );
      ASSERT_TRUE( eventually( [&] { return state( "fabric" ) == "entering"; } ) );
      ASSERT_TRUE( eventually( [&] { return text( account( "fabric", "up1" ), "verdict" ) == "loud"; } ) );
      ip( "link set farup1 down" );
      ASSERT_TRUE( eventually( [&] { return text( shown( "up1" ), "operStatus" ) == "down"; } ) );
      ip( "link set farup1 up" );
      ASSERT_TRUE( logSays( "stage: verify: begins" ) );
   }
   void exit() const { ASSERT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ).status, 0 ); }
   void reload( std::string const & config ) const {
      file( "maintd.yaml", config );
      ASSERT_EQ( maintctl( { "reload" } ).status, 0 );
   }

 private:
   std::size_t read_ = 0;  // of maintd's log
};

TEST_F( Stages, aChangedThresholdHasToBeProvenAndABadFileChangesNothing ) {
   startMaintd( stagesConfig( "100kbps" ) );
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   auto const shownNow = [&]( char const * member ) {
      return account( "fabric", "up1" ).at( member ).to_number<double>();
   };
   auto const since = [&] { return shownNow( "quietSince" ); };
   auto const threshold = [&] { return shownNow( "thresholdBitsRate" ); };
   double const proven = since();

   changeConfig( stagesConfig( "100furlongs" ) );
   EXPECT_TRUE( logSays( "reload: refused, asked for by SIGHUP: " + path( "maintd.yaml" ) + ":2:23: " ) );
   auto const refused = maintctl( { "reload" } );
   EXPECT_EQ( refused.status, 4 );
   EXPECT_THAT( refused.err, HasSubstr( path( "maintd.yaml" ) + ":2:23: " ) );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 0 );
   EXPECT_EQ( since(), proven );
   EXPECT_EQ( threshold(), 100e3 );

   changeConfig( stagesConfig( "50kbps" ) );
   ASSERT_TRUE( logSays( "maintd: reload: done, asked for by SIGHUP" ) );
   auto const asked = maintctl( { "ready", "fabric" } );
   EXPECT_EQ( asked.status, 1 );
   EXPECT_THAT( asked.out, HasSubstr( "its threshold changed" ) );
   EXPECT_EQ( threshold(), 50e3 );
   EXPECT_TRUE( eventually( [&] { return maintctl( { "ready", "fabric" } ).status == 0; } ) );
   EXPECT_GT( since(), proven );
   EXPECT_THAT( reported(), AllOf( HasSubstr( "50 kbps for 2 s" ), HasSubstr( "break  its threshold changed" ) ) );
   // The same file again is no change.
   double const again = since();
   EXPECT_EQ( maintctl( { "reload" } ).status, 0 );
   EXPECT_EQ( since(), again );
}

TEST_F( Stages, aProofThatTakesTooLongHoldsRollsBackOrGoesOnUnproven ) {
   startMaintd( stagesConfig( "100kbps", "hold" ) );
   pid_t sender = send( "up1", 1, 4e6 );
   enterWithTraffic();
   ASSERT_TRUE( logSays( "unit fabric: deadline: " ) );
   EXPECT_EQ( state( "fabric" ), "entering" );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
   stop( sender );
   EXPECT_EQ( maintctlEnds().status, 0 );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 0 );
   EXPECT_THAT( reported(), ContainsRegex( "verify +enter .* done +20[0-9-]+ [0-9:]+" ) );
   exit();
   EXPECT_THAT( reported(), HasSubstr( "generation 1: completed" ) );

   reload( stagesConfig( "100kbps", "rollback" ) );
   sender = send( "up1", 1, 4e6 );
   enterWithTraffic();
   auto const rolledBack = maintctlEnds();
   EXPECT_EQ( rolledBack.status, 1 );
   EXPECT_THAT( rolledBack.err, HasSubstr( "stage verify: timed out" ) );
   EXPECT_TRUE( eventually( [&] { return state( "fabric" ) == "active"; } ) );
   EXPECT_THAT( reported(), AllOf( HasSubstr( "generation 3: rolled back" ), HasSubstr( "timed out" ) ) );

   reload( stagesConfig( "100kbps", "continue" ) );
   enterWithTraffic();
   auto const unproven = maintctlEnds();
   EXPECT_EQ( unproven.status, 0 );
   EXPECT_THAT( unproven.err, HasSubstr( "UNPROVEN: stage verify: timed out" ) );
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 1 );
   EXPECT_THAT( reported(), HasSubstr( "UNPROVEN" ) );
   exit();
   EXPECT_THAT( reported(), HasSubstr( "generation 5: deadline" ) );
}

TEST_F( Stages, aStayIsKeptAsAPageForTheChangeTicket ) {
   startMaintd( stagesConfig( "100kbps" ) );
   EXPECT_EQ( maintctl( { "report", "fabric" } ).status, 1 );
   ASSERT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   exit();
   auto const written = maintctl( { "report", "fabric", "--html", path( "window.html" ) } );
   EXPECT_EQ( written.status, 0 );
   EXPECT_EQ( written.out, path( "window.html" ) + "\n" );
   std::string const page = contents( path( "window.html" ) );
   EXPECT_THAT( page, AllOf( HasSubstr( "fabric" ), HasSubstr( "up1" ), HasSubstr( "</html>" ) ) );
   EXPECT_EQ( maintctl( { "report", "fabric", "--generation", "1", "--html", path( "same.html" ) } ).status, 0 );
   EXPECT_EQ( maintctl( { "report", "fabric", "--generation", "7" } ).status, 1 );
   auto const nowhere = maintctl( { "report", "fabric", "--html", path( "absent/window.html" ) } );
   EXPECT_EQ( nowhere.status, 1 );
   EXPECT_THAT( nowhere.err, HasSubstr( "cannot be written: No such file or directory" ) );
}

}  // namespace Test
