// maintctl and a daemon that cannot be reached, or that is none: status 5, and a sentence that says which it is.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "Maintctl.h"

namespace Cli {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Reach = Maintctl;

constexpr char const * advice = "Start it with: ";

TEST_F( Reach, saysWhyThereIsNoWayToTheDaemon ) {
   auto const nothing = maintctl( { "units" } );
   EXPECT_EQ( nothing.status, 5 );
   EXPECT_THAT( nothing.err,
                AllOf( StartsWith( "maintctl: maintd is not running: there is no socket at " + path( "socket" ) ),
                       HasSubstr( advice ) ) );
   daemonAnswers( {} );
   daemonGone();
   auto const dead = maintctl( { "units" } );
   EXPECT_EQ( dead.status, 5 );
   EXPECT_THAT( dead.err, AllOf( HasSubstr( "nobody listens at" ), HasSubstr( advice ) ) );

   std::ofstream( path( "file" ) ) << "text";
   auto const file = maintctl( { "--socket", path( "file" ), "units" } );
   EXPECT_EQ( file.status, 5 );
   EXPECT_EQ( file.err, "maintctl: " + path( "file" ) + " is no socket\n" );

   std::string const tooLong = "/tmp/" + std::string( 103, 'a' );
   auto const unnamable = maintctl( { "--socket", tooLong, "units" } );
   EXPECT_EQ( unnamable.status, 5 );
   EXPECT_EQ( unnamable.err, "maintctl: " + tooLong + " is longer than a socket's path may be, which is 107 bytes\n" );
   auto const longest = maintctl( { "--socket", tooLong.substr( 1 ), "units" } );
   EXPECT_THAT( longest.err, HasSubstr( "there is no socket" ) );
   EXPECT_EQ( maintctl( { "--socket", "", "units" } ).status, 2 );
}

TEST_F( Reach, deniedIsNotTakenForDead ) {
   daemonAnswers( {} );
   // Root may enter all; another user is needed to be denied.
   Surroundings const other{ .user = ::geteuid() == 0 ? 65534U : 0U };
   ::chmod( path( "socket" ).c_str(), ::geteuid() == 0 ? 0660 : 0060 );
   auto const socket = maintctl( { "units" }, other );
   EXPECT_EQ( socket.status, 5 );
   EXPECT_THAT( socket.err,
                AllOf( StartsWith( "maintctl: permission denied: " + path( "socket" ) ),
                       HasSubstr( path( "socket" ) + " is open to user " ), HasSubstr( " and group " ),
                       HasSubstr( "\nRun it as that user, or be a member of group " ), Not( HasSubstr( advice ) ) ) );
   // Not the socket: the directory on the way.
   ::chmod( path( "socket" ).c_str(), 0666 );
   ::mkdir( path( "closed" ).c_str(), 0700 );
   ::rename( path( "socket" ).c_str(), path( "closed/socket" ).c_str() );
   ::chmod( path( "closed" ).c_str(), ::geteuid() == 0 ? 0700 : 0 );
   auto const directory = maintctl( { "--socket", path( "closed/socket" ), "units" }, other );
   EXPECT_EQ( directory.status, 5 );
   EXPECT_THAT( directory.err, AllOf( HasSubstr( path( "closed" ) + " is open to user " ),
                                      Not( HasSubstr( " and group " ) ), EndsWith( "\nRun it as that user\n" ) ) );
   ::chmod( path( "closed" ).c_str(), 0700 );
}

std::string http( std::string const & line, std::string const & header, std::string const & body ) {
   return "HTTP/1.1 " + line + "\r\n" + header + "\r\n" + body;
}

constexpr char const * jsonType = "Content-Type: application/json\r\n";

TEST_F( Reach, anAnswerThatWasNotAskedForIsRefused ) {
   std::string const tooDeep( 100, '[' );
   struct {
      std::string answer, told;
   } const cases[] = {
      { "", "end of stream" },
      { "SSH-2.0-OpenSSH_9.2\r\n", "bad version" },
      { http( "200 OK", "Content-Type: text/html\r\n", "<html>" ),
        "status 200 with text/html in place of application/json" },
      { http( "200 OK", "", "{}" ), "status 200 with no content type in place of application/json" },
      { http( "301 Moved", "Location: http://elsewhere/\r\n", "" ), "status 301 with no content type" },
      { http( "404 Not Found", "Content-Type: text/html\r\n", "<h1>" ), "status 404 with text/html" },
      { http( "404 Not Found", jsonType, "{\"message\": \"no\"}" ), "it has no \"error\" that is a text" },
      { http( "101 Switching", "", "" ), "status 101 with" },
      { http( "200 OK", jsonType, "{\"units\": [" ), "what it says to be JSON is none: incomplete JSON" },
      { http( "200 OK", jsonType, "{\"units\": []} x" ), "what it says to be JSON is none" },
      { http( "200 OK", jsonType, "{\"units\": [\"\xff\"]}" ), "what it says to be JSON is none" },
      { http( "200 OK", jsonType, "{\"units\": " + tooDeep + "}" ), "what it says to be JSON is none" },
      { http( "200 OK", jsonType, "[]" ), "it is no object" },
      { http( "200 OK", jsonType, "{\"interfaces\": []}" ), "it has no \"units\" that is a list" },
      { http( "200 OK", jsonType, "{\"units\": [{}]}" ), "units[0] has no \"unit\" that is a text" },
      { http( "200 OK", std::string( jsonType ) + "Content-Length: 50\r\n", "{\"units\": []}" ), "partial message" },
      { http( "200 OK", "X: " + std::string( 9000, 'x' ) + "\r\n", "" ), "header limit" },
   };
   for( auto const & [answer, told] : cases ) {
      daemonDoes( [text = answer]( int connection, std::string const & ) { sent( connection, text ); } );
      auto const units = maintctl( { "units" } );
      EXPECT_EQ( units.status, 5 ) << answer;
      EXPECT_EQ( units.out, "" );
      EXPECT_THAT( units.err, AllOf( StartsWith( "maintctl: " ), HasSubstr( "GET /v1/units" ), HasSubstr( told ) ) );
      EXPECT_EQ( std::count( units.err.begin(), units.err.end(), '\n' ), 1 ) << units.err;
   }
   // A member that may be absent shows when it is read, and then nothing of the rest is shown either.
   daemonAnswers( { { "GET /v1/interfaces", { { 200, R"({"interfaces": [{"interface": "up1", "operStatus": "up",
      "shutDown": false, "units": [], "inBitsRate": "fast"}]})" } } } } );
   auto const interfaces = maintctl( { "interfaces" } );
   EXPECT_EQ( interfaces.status, 5 );
   EXPECT_EQ( interfaces.out, "" );
   EXPECT_THAT( interfaces.err, HasSubstr( "in its answer, \"inBitsRate\" is not a number\n" ) );
   // A state that is large is not read, but it is JSON.
   daemonAnswers( { { "GET /v1/state/a/b", { { 200, "[1,", "application/json" } } },
                    { "GET /v1/state/a", { { 200, "[1]\n", "application/json; charset=utf-8" } } },
                    { "GET /v1/dump", { { 200, "{}", "application/json" } } } } );
   EXPECT_EQ( maintctl( { "get", "/a//b/" } ).status, 5 );
   EXPECT_EQ( maintctl( { "get", "a" } ).out, "[1]\n" );
   EXPECT_EQ( maintctl( { "dump" } ).status, 5 );
}

// What HTTP lets a server do all the same.
TEST_F( Reach, aProperAnswerMayComeInAnyWay ) {
   std::string const interim = "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: <x>\r\n\r\n";
   std::string const chunks = "9;x=y\r\n{\"units\":\r\n4\r\n []}\r\n0\r\nTrailer: x\r\n\r\n";
   for( std::string const & answer : {
           interim + http( "200 OK", jsonType, "{\"units\": []}" ),
           http( "200 OK", std::string( jsonType ) + "Transfer-Encoding: chunked\r\n", chunks ),
           std::string( "HTTP/1.0 200 OK\r\ncontent-type: Application/JSON\r\n\r\n{\"units\": []}" ),
        } ) {
      daemonDoes( [&]( int connection, std::string const & ) { sent( connection, answer ); } );
      auto const units = maintctl( { "units", "--json" } );
      EXPECT_EQ( units.status, 0 ) << answer << units.err;
      EXPECT_THAT( units.out, HasSubstr( "[]}" ) );
   }
}

TEST_F( Reach, troubleOfTheDaemonItselfIsToldAsItSaysIt ) {
   daemonAnswers( { { "POST /v1/units/fabric/enter",
                      { { 503, R"({"error": "the store cannot be written"})" },
                        { 500, R"({"error": "in force, but not on disk"})" } } } } );
   for( char const * told : { "the store cannot be written", "in force, but not on disk" } ) {
      auto const entered = maintctl( { "enter", "fabric" } );
      EXPECT_EQ( entered.status, 1 );
      EXPECT_EQ( entered.err, "maintctl: " + std::string( told ) + "\n" );
   }
   // One that has too many connections says so without reading, and closes, perhaps before the request was sent.
   daemonDoes(
      []( int connection, std::string const & ) {
         sent( connection, Reply{ 503, R"({"error": "too many"})" }.http() );
      },
      { .reads = false } );
   for( int i = 0; i < 20; ++i ) EXPECT_EQ( maintctl( { "units" } ).err, "maintctl: too many\n" );
}

}  // namespace
}  // namespace Cli
