// The whole trace of a life of two units, line by line as it was read and found right once.
//
// The transcript beside this file holds every line of both trace channels and of the system log with its virtual time, under the
// step of the story that caused it. It shows in which order things happen, which no record does; whoever changes a text or an order
// on purpose renews the file, as the failure says, and reads the difference.
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>

#include "DrainStory.h"
#include "brisklog/Brisklog.h"
#include "kel/LogHandle.h"
#include "kel/Trace.h"

namespace Test {

namespace {

std::string const transcriptPath = RATEMON_SOURCE_DIR "/tests/plugin/two_units.transcript";
char const * const renewVariable = "RATEMON_RENEW_TRANSCRIPT";

std::vector<std::string> linesOf( std::istream & in ) {
   std::vector<std::string> lines;
   for( std::string line; std::getline( in, line ); ) lines.push_back( line );
   return lines;
}

}  // namespace

class Transcript : public DrainStory {
 protected:
   Transcript() {
      traceOn();
      Kel::traceSinkIs( [this]( Kel::TraceRecord const & record ) { add( "trace", record.level, record.text ); } );
      Brisklog::tapIs( [this]( Brisklog::Message const & message ) { add( "ring", message.level, message.text ); } );
      Kel::logSinkIs(
         [this]( Kel::LogRecord const & record ) { add( "log", record.handle.severity(), record.text ); } );
   }
   ~Transcript() override { Brisklog::tapIs( {} ); }

   // One step of the story, and all that comes of it at once.
   void step( std::string const & what, std::function<void()> const & work ) {
      lines_.push_back( "# " + what );
      work();
      advance( 0 );
   }
   void wait( double seconds ) {
      std::ostringstream what;
      what << seconds << " s pass";
      step( what.str(), [&] { advance( seconds ); } );
   }

   std::vector<std::string> lines_;

 private:
   void add( char const * channel, int level, std::string_view text ) {
      std::ostringstream line;
      line << now() << ' ' << channel << ' ' << level << ' ' << text;
      lines_.push_back( line.str() );
   }
};

TEST_F( Transcript, ofTwoUnitsIsTheOneThatWasKept ) {
   profile( "#DEFAULTPROFILE", { .loadInterval = 20 } );
   profile( "down", { .loadInterval = 20, .shutdown = true, .maxDelay = 600 } );
   unit( "north", { "Ethernet1", "Ethernet2" } );
   unit( "south", { "Ethernet2", "Ethernet3", "Ethernet3.5" } );
   select( "Ethernet3", "down" );
   traffic( "Ethernet2", 10_Mbps );
   step( "the agent starts", [&] { start(); } );
   step( "north enters", [&] { enter( "north" ); } );
   wait( 10 );
   step( "south enters", [&] { enter( "south" ); } );
   wait( 20 );
   step( "the link of Ethernet3, shut down, follows", [&] { link( "Ethernet3", Interface::IntfOperStatus::down ); } );
   traffic( "Ethernet2", 0_bps );
   wait( 20 );
   ASSERT_TRUE( enterComplete( "north" ) && enterComplete( "south" ) );
   step( "both are in maintenance", [&] {
      finishEnter( "north" );
      finishEnter( "south" );
   } );
   traffic( "Ethernet1", 1_Mbps );
   step( "Ethernet1 carries traffic for a moment", [&] { advance( 20_s ); } );
   traffic( "Ethernet1", 0_bps );
   step( "the profile of Ethernet3 no longer asks for shutdown", [&] { profile( "down", { .loadInterval = 20 } ); } );
   step( "its link comes up", [&] { link( "Ethernet3", Interface::IntfOperStatus::up ); } );
   step( "another profile is selected for Ethernet2", [&] { select( "Ethernet2", "down" ); } );
   step( "the agent restarts", [&] { restart(); } );
   step( "Ethernet1 leaves the group north",
         [&] { state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet1" ) )->groupDelAll(); } );
   step( "north leaves", [&] { exit( "north" ); } );
   step( "south leaves", [&] { exit( "south" ); } );
   ASSERT_TRUE( exitComplete( "north" ) && exitComplete( "south" ) );
   step( "both are in service again", [&] {
      finishExit( "north" );
      finishExit( "south" );
   } );
   step( "the agent stops", [&] { stop(); } );

   if( std::getenv( renewVariable ) ) {
      std::ofstream kept( transcriptPath );
      for( std::string const & line : lines_ ) kept << line << '\n';
      GTEST_SKIP() << "renewed " << transcriptPath;
   }
   std::ifstream file( transcriptPath );
   ASSERT_TRUE( file ) << transcriptPath;
   std::vector<std::string> const kept = linesOf( file );
   auto const [is, was] = std::mismatch( lines_.begin(), lines_.end(), kept.begin(), kept.end() );
   auto const orEnd = []( auto at, auto const & lines ) { return at == lines.end() ? "(the end)" : *at; };
   EXPECT_TRUE( is == lines_.end() && was == kept.end() )
      << "line " << was - kept.begin() + 1 << " was\n   " << orEnd( was, kept ) << "\nand is\n   "
      << orEnd( is, lines_ ) << "\nIf that is meant: run this test with " << renewVariable
      << "=1 in the environment, and read what changes in the file.";
}

}  // namespace Test
