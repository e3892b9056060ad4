// maintctl events, and a daemon that ends, comes back, and forgets.
#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "Maintctl.h"
#include "events/Events.h"

namespace Cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string eventLine( uint64_t seq, char const * severity, std::string const & text, char const * unit = "fabric",
                       char const * intf = nullptr ) {
   Service::Event event;
   event.seq = seq;
   event.wallTime = 1772366405.9;  // 2026-03-01 12:00:05
   event.kind = "spike";
   event.severity = severity;
   if( unit ) event.unit = Kel::String8( unit );
   if( intf ) event.interface = Kel::String8( intf );
   event.text = Kel::String8( text );
   return Kel::toJson( Kel::value( event ) ) + "\n";
}

std::string endLine( uint64_t seq, std::string const & why ) {
   std::string const number = std::to_string( seq );
   return "{\"seq\":" + number + ",\"end\":\"" + why + "\",\"resumeAfter\":" + number + "}\n";
}

std::string const head = "HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson\r\nTransfer-Encoding: chunked\r\n\r\n";
std::string const over = "0\r\n\r\n";

std::string chunk( std::string const & text ) {
   char length[20];
   std::snprintf( length, sizeof length, "%zx\r\n", text.size() );
   return length + text + "\r\n";
}

Reply gone( std::string const & oldest ) {
   return { 410,
            R"({"error": "that is not kept any more; the oldest is )" + oldest + R"(", "oldest": )" + oldest + "}" };
}

// One connection: what it is sent, and whether it is left open then.
struct Told {
   std::string text;
   bool stays = false;
};

class EventsCommand : public Maintctl {
 protected:
   void daemonTells( std::vector<Told> const & connections ) {
      daemonDoes( [this, connections, at = std::size_t( 0 )]( int connection, std::string const & request ) mutable {
         std::ofstream( path( "requests" ), std::ios::app ) << request << "\n";
         auto const & [text, stays] = connections.at( at++ );
         sent( connection, text );
         if( stays ) waitUntilClosed( connection );
      } );
   }
   // What it has printed when it is interrupted, which is when it has printed `last`.
   Result untilItSays( std::string const & last, Words const & arguments ) {
      Running const running = begun( arguments, { .environment = { "TZ=UTC" } } );
      for( int tenths = 0; tenths < 200; ++tenths ) {
         if( contents( running.name + ".out" ).find( last ) != std::string::npos ) break;
         ::usleep( 100000 );
      }
      ::kill( running.process, SIGINT );
      return ended( running );
   }
};

TEST_F( EventsCommand, goOnWhereTheyWereWhenMaintdComesBack ) {
   std::string const inPieces = chunk( eventLine( 700, "info", "last", nullptr ) );
   daemonTells( {
      { head +
        chunk( eventLine( 11, "notice", "a" ) + eventLine( 12, "warning", "out 4 Mbps", "fabric", "up\x1b[2J" ) ) +
        chunk( endLine( 12, "stopping" ) ) + over },
      { gone( "500" ).http() },  // started again, and all it said before had been read
      { head + chunk( eventLine( 500, "error", "b", nullptr, "up1" ) ) },  // breaks off
      { gone( "700" ).http() },
      { head + chunk( endLine( 699, "too slow" ) ) + over },
      { head + inPieces.substr( 0, 50 ) + inPieces.substr( 50 ), true },
   } );
   auto const result = untilItSays( "last", { "events", "--unit", "fabric" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.out,
              "2026-03-01 12:00:05 fabric: spike: a\n"
              "2026-03-01 12:00:05 WARNING fabric: up\\u001b[2J: spike: out 4 Mbps\n"
              "2026-03-01 12:00:05 ERROR up1: spike: b\n"
              "2026-03-01 12:00:05 spike: last\n" );
   EXPECT_EQ( requests(),
              "GET /v1/events?unit=fabric\nGET /v1/events?after=12&unit=fabric\nGET /v1/events?after=499&unit=fabric\n"
              "GET /v1/events?after=500&unit=fabric\nGET /v1/events?after=699&unit=fabric\n"
              "GET /v1/events?after=699&unit=fabric\n" );
   EXPECT_THAT( result.err,
                ::testing::MatchesRegex(
                   "maintctl: maintd has ended; waiting for it to be started again\n"
                   "maintctl: maintd answers again\n"
                   "maintctl: maintd at .* it has broken off: .*; waiting for it to answer again\n"
                   "maintctl: that is not kept any more; the oldest is 700; it goes on with that\n"
                   "maintctl: maintd answers again\n"
                   "maintctl: maintd has cut this off, as it was read too slowly; going on where it was\n" ) );
}

TEST_F( EventsCommand, areLinesAsTheyCameForPrograms ) {
   std::string const lines = eventLine( 7, "info", "a" ) + endLine( 7, "stopping" ) + "{\"new\":1,\"seq\":8}\n";
   daemonTells( { { head + chunk( lines ), true } } );
   auto const result = untilItSays( "new", { "events", "--json", "--after", "6" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.out, lines );
   EXPECT_EQ( requests(), "GET /v1/events?after=6\n" );
}

// What is no maintd, or refuses, is said and ended; a line without an end takes no more memory than a line may.
TEST_F( EventsCommand, endWhereThereIsNothingToFollow ) {
   daemonTells( { { Reply{ 404, R"({"error": "there is no unit \"x\""})" }.http() },
                  { Reply{ 200, "{}" }.http() },
                  { head + chunk( "no JSON\n" ), true } } );
   EXPECT_EQ( maintctl( { "events", "--unit", "x" } ).err, "maintctl: there is no unit \"x\"\n" );
   auto const plain = maintctl( { "events" } );
   EXPECT_EQ( plain.status, 5 );
   EXPECT_THAT( plain.err, HasSubstr( "is no maintd, or one of another version" ) );
   EXPECT_EQ( maintctl( { "events" } ).status, 5 );
   daemonDoes( []( int connection, std::string const & ) {
      std::string const much = chunk( std::string( 1024 * 1024, 'x' ) );
      if( sent( connection, head ) )
         while( sent( connection, much ) ) {
         }
   } );
   Running const running = begun( { "events" }, {} );
   for( int tenths = 0; tenths < 300 && contents( running.name + ".err" ).empty(); ++tenths ) ::usleep( 100000 );
   ::kill( running.process, SIGINT );
   auto const endless = ended( running );
   EXPECT_THAT( endless.err, HasSubstr( "a line is longer than may be" ) );
#ifdef RATEMON_SANITIZED
   EXPECT_LT( endless.memoryKilobytes, 600 * 1024 );  // what was freed is kept back for a while
#else
   EXPECT_LT( endless.memoryKilobytes, 300 * 1024 );
#endif
   daemonGone();
   EXPECT_EQ( maintctl( { "events" } ).status, 5 );
}

}  // namespace
}  // namespace Cli
