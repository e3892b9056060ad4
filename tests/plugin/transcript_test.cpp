// The whole trace of a life of two units, and of what the plug-in refuses, line by line as it was read and found right
// once.
//
// The transcripts beside this file hold every line of both trace channels and of the system log with its virtual time,
// under the step of the story that caused it, and the plug-in's dump where a step asks for it. They show in which order
// things happen, which no record does; whoever changes a text or an order on purpose renews the files, as the failure
// says, and reads the difference.
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

   void dump() {
      step( "the dump", [] {} );
      std::istringstream dumped( world_.dump() );
      for( auto const & line : linesOf( dumped ) ) lines_.push_back( line );
   }

   void expectKept( std::string const & name ) const;

 private:
   std::vector<std::string> lines_;

   void add( char const * channel, int level, std::string_view text ) {
      std::ostringstream line;
      line << now() << ' ' << channel << ' ' << level << ' ' << text;
      lines_.push_back( line.str() );
   }
};

void Transcript::expectKept( std::string const & name ) const {
   std::string const path = RATEMON_SOURCE_DIR "/tests/plugin/" + name + ".transcript";
   if( std::getenv( renewVariable ) ) {
      std::ofstream kept( path );
      for( std::string const & line : lines_ ) kept << line << '\n';
      GTEST_SKIP() << "renewed " << path;
   }
   std::ifstream file( path );
   ASSERT_TRUE( file ) << path;
   std::vector<std::string> const kept = linesOf( file );
   auto const [is, was] = std::mismatch( lines_.begin(), lines_.end(), kept.begin(), kept.end() );
   auto const orEnd = []( auto at, auto const & lines ) { return at == lines.end() ? "(the end)" : *at; };
   EXPECT_TRUE( is == lines_.end() && was == kept.end() )
      << "line " << was - kept.begin() + 1 << " was\n   " << orEnd( was, kept ) << "\nand is\n   "
      << orEnd( is, lines_ ) << "\nIf that is meant: run this test with " << renewVariable
      << "=1 in the environment, and read what changes in the file.";
}

TEST_F( Transcript, ofTwoUnitsIsTheOneThatWasKept ) {
   profile( "#DEFAULTPROFILE", { .loadInterval = 20 } );
   profile( "down", { .loadInterval = 20, .shutdown = true, .maxDelay = 600 } );
   unit( "north", { "Ethernet1", "Ethernet2" } );
   unit( "south", { "Ethernet2", "Ethernet3", "Ethernet3.5" } );
   select( "Ethernet3", "down" );
   traffic( "Ethernet2", 10_Mbps, 5_Mbps );
   step( "the agent starts", [&] { start(); } );
   step( "north enters", [&] { enter( "north" ); } );
   wait( 10 );
   step( "south enters", [&] { enter( "south" ); } );
   wait( 20 );
   step( "the link of Ethernet3, shut down, follows", [&] { link( "Ethernet3", Interface::IntfOperStatus::down ); } );
   traffic( "Ethernet2", 0_bps );
   wait( 10 );
   dump();
   wait( 10 );
   ASSERT_TRUE( enterComplete( "north" ) && enterComplete( "south" ) );
   step( "both are in maintenance", [&] {
      finishEnter( "north" );
      finishEnter( "south" );
   } );
   traffic( "Ethernet1", 1_Mbps, 2_Mbps );
   step( "Ethernet1 carries traffic for a moment", [&] { advance( 20_s ); } );
   dump();
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
   expectKept( "two_units" );
}

// Interfaces that cannot be monitored, units that nobody brings in, and a host that asks for what makes no sense.
class Refusals : public Transcript {
 protected:
   Refusals() {
      profile( "impatient", { .shutdown = true, .maxDelay = 15 } );
      unit( "fabric", { "Ethernet1", "Ethernet2", "Ethernet3", "Port-Channel1.5" } );
      unit( "edge", { "Ethernet4", "Vlan20" } );
      unit( "core", { "Ethernet4" } );
      unit( "lost", {} );
      unit( "idle", { "Ethernet1" } );
      status( "edge" ).groupIs( { Group::GroupType::bgp, "peers" }, true );
      status( "edge" ).groupIs( group( "absent" ), true );
      link( "Ethernet2", Interface::IntfOperStatus::down );
      linkDel( "Ethernet3" );
      select( "Ethernet1", "impatient" );
      traffic( "Ethernet1", 10_Mbps );
      status( "lost" ).maintEnterInstanceNameIs( instance( "lost", 1 ) );
      unitState( "lost", State::entering );
   }

   static Group::GroupKey group( char const * name ) { return { Group::GroupType::intf, name }; }
   void leave( char const * intf, char const * groupName ) {
      state_.intfToGroup->intfToGroup( Lumo::IntfId( intf ) )->groupDel( group( groupName ) );
   }
   void inUnit( char const * groupName, char const * unitName, bool in ) {
      state_.groupToUnit->groupToUnitIs( group( groupName ) )->unitNameIs( unitName, in );
   }
   static void request( Maintenance::StageState const & stage, char const * name, bool active ) {
      stage.progress->progressIs( Kel::Name( name ) )->stageIs( "ratemon", active );
   }
};

TEST_F( Refusals, areTheOnesThatWereKept ) {
   step( "the agent starts while a unit enters that nobody brings in", [&] { start(); } );
   step( "fabric enters, half of it fit for it", [&] { enter( "fabric" ); } );
   wait( 20 );
   step( "its stage turns false, which is a new request", [&] { request( state_.enter, "fabric#1", false ); } );
   wait( 20 );
   step( "edge and core enter", [&] {
      enter( "edge" );
      enter( "core" );
   } );
   step( "core leaves as the link of Ethernet4 has just gone down", [&] {
      link( "Ethernet4", Interface::IntfOperStatus::down );
      exit( "core" );
   } );
   step( "core is to leave again", [&] { request( state_.exit, "core#3", true ); } );
   step( "a unit that does not exist is to leave", [&] { request( state_.exit, "absent#1", true ); } );
   step( "another stage begins",
         [&] { state_.enter.progress->progress( Kel::Name( "edge#1" ) )->stageIs( "bgp", true ); } );
   step( "Ethernet2 leaves fabric, which does not monitor it", [&] { leave( "Ethernet2", "fabric" ); } );
   step( "Ethernet1 leaves idle, which is not served", [&] { leave( "Ethernet1", "idle" ); } );
   step( "the group idle leaves its unit", [&] { inUnit( "idle", "idle", false ); } );
   step( "a group without interfaces joins fabric", [&] { inUnit( "hollow", "fabric", true ); } );
   step( "and leaves it", [&] { inUnit( "hollow", "fabric", false ); } );
   step( "Ethernet1 joins a second group of fabric", [&] {
      state_.groupStatus->statusIs( "spare" )->intfIs( Lumo::IntfId( "Ethernet1" ), true );
      state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet1" ) )->groupIs( group( "spare" ), true );
      inUnit( "spare", "fabric", true );
   } );
   step( "and leaves the first, which changes nothing", [&] { leave( "Ethernet1", "fabric" ); } );
   step( "the stage manager makes an instance known and forgets it", [&] {
      state_.exit.completion->statusIs( "core#3" );
      state_.exit.completion->statusDel( "core#3" );
   } );
   step( "a profile comes, serves as the default, and goes", [&] {
      profile( "strict", { .thresholdKbps = 1 } );
      defaultProfile( "strict" );
      state_.profiles->configDel( "strict" );
   } );
   step( "somebody writes rates for an interface that is not monitored", [&] {
      state_.monIntfStatus->monIntfStatusIs( Lumo::IntfId( "Ethernet9" ), Kel::String8( "odd" ), now() )
         ->curRatesIs( { 1, 1, now() } );
   } );
   step( "the record of edge is deleted", [&] { state_.unitStatus->statusDel( "edge" ); } );
   step( "every profile is deleted", [&] { state_.profiles->configDelAll(); } );
   dump();
   step( "the agent stops", [&] { stop(); } );
   expectKept( "refusals" );
}

}  // namespace Test
