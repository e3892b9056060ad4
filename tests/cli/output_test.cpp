// What maintctl writes: whoever has chosen the texts, and wherever it goes.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "Maintctl.h"
#include "brisklog/Brisklog.h"
#include "brisklog/RingFile.h"
#include "kel/Utf8.h"

namespace Cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Printed = Maintctl;

// A title, a colour, a line of its own, a C1 control, an override of the writing direction, a zero and a delete.
constexpr char hostileText[] = "x\x1b]0;t\x07\x1b[31m\nFORGED line\r\t\u009b2J\u202e\u2066\0\x7f";
std::string const hostile( hostileText, sizeof hostileText - 1 );

// Puts it in the place of every text, but for those that say what is to be done next.
boost::json::value poisoned( boost::json::value value ) {
   if( auto * const object = value.if_object() ) {
      for( auto & [name, member] : *object ) {
         if( name != "state" && name != "result" && name != "operation" ) member = poisoned( member );
      }
   } else if( auto * const list = value.if_array() ) {
      for( auto & element : *list ) element = poisoned( element );
   } else if( value.is_string() ) {
      value = hostile;
   }
   return value;
}

template<class Answer>
Reply poisonedReply( Answer const & answer ) {
   return { 200, boost::json::serialize( poisoned( received( answer ) ) ) };
}

Service::UnitAnswer unitIn( char const * state ) {
   Service::AccountAnswer account;
   account.interface = "up1";
   account.verdict = "loud";
   account.why = "why";
   account.lastLoud = Service::LoudAnswer{ 1, "out", 3e6 };
   Service::UnitAnswer unit;
   unit.unit = "fabric";
   unit.state = state;
   unit.stage = "ratemon";
   unit.requestedBy = "alice";
   unit.note = "note";
   unit.without = { "up1" };
   unit.interfaces = { account };
   return unit;
}

Service::WindowAnswer poisonedWindow() {
   Service::WindowInterfaceAnswer intf;
   intf.interface = "up1";
   intf.events = { Evidence::IntfEvent() };
   intf.verdicts = { { 1, "quiet" } };
   Service::WindowAnswer answer;
   answer.unit = "fabric";
   answer.requestedBy = "alice";
   answer.stages = { { 1, "verify", "enter", 1, 2, {}, "timed out", "why" } };
   answer.interfaces = { intf };
   return answer;
}

Script hostileDaemon() {
   Reply const entering = poisonedReply( unitIn( "entering" ) );
   Reply const arrived = poisonedReply( unitIn( "inMaintenance" ) );
   Reply const units = poisonedReply( Service::UnitsAnswer{ { unitIn( "entering" ) } } );
   Service::InterfaceAnswer intf;
   intf.profile = "p";
   intf.units = { "fabric" };
   Reply const refusal{ 409, boost::json::serialize( poisoned( { { "error", "" }, { "why", { "", "" } } } ) ) };
   Reply const trouble{ 500, boost::json::serialize( poisoned( { { "error", "" } } ) ) };
   Service::RequestAnswer const request{ "enter", "fabric", "started", 4, { "why" } };
   return {
      { "GET /v1/units", { units } },
      { "GET /v1/units/fabric", { entering, arrived } },
      { "GET /v1/units/fabric/ready",
        { poisonedReply( Service::ReadyAnswer{ "fabric", false, 1, true, 2, { "why" } } ) } },
      { "GET /v1/interfaces", { poisonedReply( Service::InterfacesAnswer{ { intf } } ) } },
      { "GET /v1/interfaces/up1", { units } },
      { "GET /v1/windows/fabric/last", { poisonedReply( poisonedWindow() ) } },
      { "GET /v1/windows/rack/last", { trouble } },
      { "GET /v1/state/a", { { 200, boost::json::serialize( boost::json::value( hostile ) ) + "\r\n" } } },
      { "GET /v1/dump", { { 200, hostile, "text/plain" } } },
      { "POST /v1/units/fabric/enter", { poisonedReply( request ) } },
      { "POST /v1/units/fabric/exit", { refusal } },
      { "POST /v1/reload", { trouble } },
      { "POST /v1/trace/levels?levels=1",
        { { 200, boost::json::serialize( boost::json::object{ { "levels", { { hostile, { 1 } } } } } ) } } },
   };
}

void expectHarmless( std::string const & text, std::string const & command ) {
   for( std::string_view rest = text; !rest.empty(); ) {
      std::size_t const length = Kel::sequenceLength( rest );
      ASSERT_NE( length, 0U ) << command << " prints what is no UTF-8: " << text;
      auto const c = static_cast<unsigned char>( rest.front() );
      // A tab only moves on, and a dump may have some.
      EXPECT_TRUE( c == '\n' || ( c == '\t' && command == "[\"dump\"]" ) || ( c >= 0x20 && c != 0x7f ) )
         << command << " prints a control character: " << int( c );
      rest.remove_prefix( length );
   }
   for( char const * forbidden : { "\u009b", "\u202e", "\u2066" } )
      EXPECT_THAT( text, Not( HasSubstr( forbidden ) ) ) << command;
}

TEST_F( Printed, isHarmlessWhateverTheDaemonSays ) {
   daemonAnswers( hostileDaemon() );
   // Beside the socket.
   Brisklog::ringIs( Brisklog::RingFile::create( path( "socket.trace" ), 32768 ) );
   BRISKLOG( 3, "{}", std::string_view( hostile ) );
   Brisklog::ringIs( Brisklog::RingFile::anonymous( 32768 ) );
   Words const commands[] = { { "status" },
                              { "status", "fabric" },
                              { "units" },
                              { "interfaces" },
                              { "ready", "fabric" },
                              { "explain", "up1" },
                              { "enter", "fabric" },
                              { "enter", "fabric", "--wait" },
                              { "exit", "fabric" },
                              { "report", "fabric" },
                              { "report", "rack" },
                              { "reload" },
                              { "get", "a" },
                              { "dump" },
                              { "trace" },
                              { "trace", "--levels", "1" },
                              { "status", hostile.substr( 0, 20 ) },
                              { hostile.c_str() },
                              { "trace", "--file", hostile.c_str() } };
   for( Words command : commands ) {
      for( bool const json : { false, true } ) {
         if( json ) command.emplace_back( "--json" );
         auto const result = maintctl( command );
         std::string const name = boost::json::serialize( boost::json::value_from( command ) );
         EXPECT_NE( result.out + result.err, "" ) << name;
         expectHarmless( result.out, name );
         expectHarmless( result.err, name );
         // A dump consists of lines; everywhere else a text stays within its own.
         if( command.front() != "dump" ) {
            EXPECT_THAT( "\n" + result.out + result.err, Not( HasSubstr( "\nFORGED" ) ) ) << name;
         }
         // A program gets what was said.
         if( json && result.status == 0 && result.out.starts_with( "{" ) ) {
            EXPECT_THAT( boost::json::serialize( boost::json::parse( result.out ) ), HasSubstr( "FORGED" ) ) << name;
         }
      }
   }
}

TEST_F( Printed, thatCannotBeWrittenIsNotTakenForDone ) {
   daemonAnswers( { { "GET /v1/dump", { { 200, std::string( 3 << 20, 'x' ), "text/plain" } } } } );
   auto const to = []( char const * file ) {
      return Surroundings{ .beforeExec = [=] { ::dup2( ::open( file, O_WRONLY ), STDOUT_FILENO ); } };
   };
   auto const full = maintctl( { "dump" }, to( "/dev/full" ) );
   EXPECT_EQ( full.status, 1 );
   EXPECT_EQ( full.err, "maintctl: what was to be printed cannot be written: No space left on device\n" );
   EXPECT_EQ( maintctl( { "--help" }, to( "/dev/full" ) ).status, 1 );
   // A reader that has gone, and a descriptor that was never open: nobody wants to know.
   auto const gone = maintctl( { "dump" }, { .beforeExec = [] {
                                  int ends[2];
                                  if( ::pipe( ends ) != 0 ) ::_exit( 126 );
                                  ::close( ends[0] );
                                  ::dup2( ends[1], STDOUT_FILENO );
                               } } );
   EXPECT_EQ( gone.status, 1 );
   EXPECT_EQ( gone.err, "" );
   auto const closed = maintctl( { "dump" }, { .beforeExec = [] { ::close( STDOUT_FILENO ); } } );
   EXPECT_EQ( closed.status, 1 );
   EXPECT_EQ( closed.err, "" );
   // What was complained of without a standard error did not go to the daemon.
   auto const silent = maintctl( { "status", "nowhere" }, { .beforeExec = [] { ::close( STDERR_FILENO ); } } );
   EXPECT_EQ( silent.status, 1 );
   EXPECT_THAT( requests(), Not( HasSubstr( "maintctl" ) ) );
}

}  // namespace
}  // namespace Cli
