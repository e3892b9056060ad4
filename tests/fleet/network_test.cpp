// The owner's API over TCP, where there is no user: what a client shows instead decides, and it is on record who it
// was.
#include <gmock/gmock.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <sstream>

#include "Desk.h"
#include "FreePort.h"
#include "http/HttpServer.h"

namespace FleetTest {

namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class FleetNetwork : public ::testing::Test {
 protected:
   [[nodiscard]] std::string freeAddress() const { return "127.0.0.1:" + std::to_string( free_.number() ); }
   void serve( std::string const & address ) {
      server_.emplace( loop_, Host::HttpServer::Place{ .path = "", .program = "maintfleet", .address = address },
                       [this]( Host::HttpRequest const & request ) { return desk.api().answer( request ); } );
      port_ = static_cast<uint16_t>( std::stoi( address.substr( address.find( ':' ) + 1 ) ) );
   }
   // The whole answer to a request that ends its connection; `client_` is whence it came.
   std::string answer( std::string const & method, std::string const & target, std::string const & fields ) {
      Tcp::socket client( loop_.io() );
      client.connect( { asio::ip::address_v4::loopback(), port_ } );
      std::ostringstream own;
      own << client.local_endpoint();
      client_ = std::move( own ).str();
      asio::write( client, asio::buffer( method + " " + target + " HTTP/1.1\r\nHost: fleet\r\nConnection: close\r\n" +
                                         fields + "\r\n" ) );
      std::string text;
      bool ended = false;
      asio::async_read( client, asio::dynamic_buffer( text ), [&]( auto const &, std::size_t ) { ended = true; } );
      while( !ended && loop_.io().run_one_for( std::chrono::seconds( 30 ) ) > 0 ) {
      }
      EXPECT_TRUE( ended );
      return text;
   }

   [[nodiscard]] uint16_t port() const { return port_; }

   Kel::ActivityLoop activityLoop_{ Kel::Ptr<Kel::Clock>( new Kel::RealClock ) };
   Host::AsioLoop loop_{ activityLoop_ };
   Desk desk{ "boxes: { s1a: { units: [ fabric ] } }" };
   std::string client_;

 private:
   Fleet::FreePort const free_;
   std::optional<Host::HttpServer> server_;
   uint16_t port_ = 0;
};

}  // namespace

TEST_F( FleetNetwork, aChangeIsOnRecordWithItsOperatorOrElseWhenceItCame ) {
   serve( freeAddress() );
   desk.api().keysIs( Keys( "alice 0123456789abcdef", "keys" ) );
   EXPECT_THAT( answer( "GET", "/v1/fleet", "" ), StartsWith( "HTTP/1.1 200 OK\r\n" ) );
   ::testing::internal::CaptureStderr();
   EXPECT_THAT( answer( "POST", "/v1/brake", "Authorization: Bearer 0123456789abcdeg\r\n" ),
                AllOf( StartsWith( "HTTP/1.1 401 " ), HasSubstr( "\r\nWWW-Authenticate: Bearer\r\n" ) ) );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(), HasSubstr( " " + client_ + ": POST /v1/brake: 401, " ) );
   ::testing::internal::CaptureStderr();
   EXPECT_THAT( answer( "POST", "/v1/brake", "Authorization: Bearer 0123456789abcdef\r\n" ),
                StartsWith( "HTTP/1.1 200 OK\r\n" ) );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( "alice (" + client_ + "): POST /v1/brake: 200, brake on" ) );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes/0/by" ), "alice" );
   // Whoever sends parameters as a form would have braked all sites.
   for( char const * body : { "Content-Length: 8\r\n\r\nsite=fra", "Transfer-Encoding: chunked\r\n\r\n0\r\n" } ) {
      EXPECT_THAT( answer( "POST", "/v1/brake", "Authorization: Bearer 0123456789abcdef\r\n" + std::string( body ) ),
                   AllOf( StartsWith( "HTTP/1.1 400 " ), HasSubstr( "stand in its target" ) ) );
   }
   EXPECT_THAT( answer( "POST", "/v1/release", "Authorization: Bearer 0123456789abcdef\r\nContent-Length: 0\r\n" ),
                StartsWith( "HTTP/1.1 200 OK\r\n" ) );
}

// A connection that is reset has no other end to be asked for any more, and what it sent before is read all the same.
TEST_F( FleetNetwork, whoIsGoneWhenHisRequestIsReadNeedsAKeyAsWell ) {
   serve( freeAddress() );
   desk.api().keysIs( Keys( "alice 0123456789abcdef", "keys" ) );
   ::testing::internal::CaptureStderr();
   {
      Tcp::socket client( loop_.io() );
      client.connect( { asio::ip::address_v4::loopback(), port() } );
      client.set_option( asio::socket_base::linger( true, 0 ) );
      asio::write( client, asio::buffer( std::string( "POST /v1/brake HTTP/1.1\r\nHost: fleet\r\n\r\n" ) ) );
      // To be destroyed only would end it properly.
      client.close();
   }
   while( loop_.io().run_one_for( std::chrono::milliseconds( 300 ) ) > 0 ) {
   }
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(), HasSubstr( "POST /v1/brake: 401, " ) );
   EXPECT_EQ( desk.get( "/v1/fleet" ).told( "/brakes" ), "[]" );
}

TEST_F( FleetNetwork, listensOnlyAtAnAddressOfItsOwnWithAPort ) {
   for( char const * wrong :
        { "localhost:80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:70000", "[::1]:1x", "192.0.2.1:80" } )
      EXPECT_THROW( serve( wrong ), std::runtime_error ) << wrong;
   std::string const address = freeAddress();
   serve( address );
   EXPECT_THROW( Host::HttpServer( loop_, { .path = "", .address = address }, {} ), std::runtime_error );
}

}  // namespace FleetTest
