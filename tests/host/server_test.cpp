// The API's socket: who is at the other end of it.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <boost/asio/write.hpp>
#include <vector>

#include "api/HttpServer.h"

namespace Host {
namespace {

using Protocol = boost::asio::local::stream_protocol;

// Asked for only where something changes, as the name may come from far away.
TEST( HttpServerTest, saysWhoAsksForAChange ) {
   Kel::ActivityLoop activityLoop( Kel::Ptr<Kel::Clock>( new Kel::RealClock ) );
   AsioLoop loop( activityLoop );
   std::string const path = "/tmp/ratemon-server-test-" + std::to_string( ::getpid() );
   std::vector<HttpRequest> requests;
   HttpServer const server( loop, path, [&]( HttpRequest const & request ) {
      requests.push_back( request );
      return HttpAnswer();
   } );
   Protocol::socket client( loop.io() );
   client.connect( Protocol::endpoint( path ) );
   std::string const text =
      "GET /a HTTP/1.1\r\nHost: x\r\n\r\nPOST /b?c=d HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n";
   boost::asio::write( client, boost::asio::buffer( text ) );
   while( requests.size() < 2 && loop.io().run_one_for( std::chrono::seconds( 10 ) ) > 0 ) {
   }
   ASSERT_EQ( requests.size(), 2u );
   EXPECT_EQ( requests[0].method, "GET" );
   EXPECT_EQ( requests[0].user, "" );
   EXPECT_EQ( requests[1].target, "/b?c=d" );
   passwd const * const me = ::getpwuid( ::geteuid() );
   EXPECT_EQ( requests[1].user, me ? me->pw_name : std::to_string( ::geteuid() ) );
}

}  // namespace
}  // namespace Host
