// A server in a directory of its own, with the loop that drives it, and clients that are read without waiting.
#pragma once

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "http/HttpServer.h"

namespace Host {

class HttpServerTest : public ::testing::Test {
 protected:
   using Protocol = boost::asio::local::stream_protocol;

   HttpServerTest() {
      std::filesystem::remove_all( directory_ );
      std::filesystem::create_directory( directory_ );
      limits_.idle = limits_.request = limits_.answer = limits_.parting = std::chrono::seconds( 60 );
   }
   ~HttpServerTest() override { std::filesystem::remove_all( directory_ ); }

   std::unique_ptr<HttpServer> server() {
      return std::make_unique<HttpServer>(
         loop_, HttpServer::Place{ path_ }, [this]( HttpRequest const & request ) { return handler_( request ); },
         limits_ );
   }
   Protocol::socket connected() {
      Protocol::socket client( loop_.io() );
      client.connect( Protocol::endpoint( path_ ) );
      client.non_blocking( true );
      return client;
   }
   // A client that has sent this.
   Protocol::socket asking( std::string const & text ) {
      auto client = connected();
      boost::asio::write( client, boost::asio::buffer( text ) );
      return client;
   }
   // Lets the loop run until `done`, for half a minute at most.
   template<class Done>
   bool runUntil( Done const & done ) {
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
      while( !done() ) {
         if( std::chrono::steady_clock::now() > end ) return false;
         loop_.io().run_one_for( std::chrono::milliseconds( 10 ) );
         loop_.io().restart();
      }
      return true;
   }
   // Reads what is there; true when the server has closed its end.
   static bool drained( Protocol::socket & client, std::string & text ) {
      char piece[4096];
      boost::system::error_code error;
      while( std::size_t const bytes = client.read_some( boost::asio::buffer( piece ), error ) ) {
         text.append( piece, bytes );
      }
      return error && error != boost::asio::error::would_block;
   }
   // The same without reading.
   static bool givenUp( Protocol::socket & client ) {
      pollfd end{ .fd = client.native_handle(), .events = POLLRDHUP, .revents = 0 };
      return ::poll( &end, 1, 0 ) > 0;
   }
   // All that the server says until it closes.
   std::string said( Protocol::socket & client ) {
      std::string text;
      EXPECT_TRUE( runUntil( [&] { return drained( client, text ); } ) ) << text;
      return text;
   }
   std::string refused() {
      try {
         server();
      } catch( std::runtime_error const & error ) {
         return error.what();
      }
      return "";
   }

   Kel::ActivityLoop activityLoop_{ Kel::Ptr<Kel::Clock>( new Kel::RealClock ) };
   AsioLoop loop_{ activityLoop_ };
   std::string const directory_ = "/tmp/ratemon-server-test-" + std::to_string( ::getpid() );
   std::string const path_ = directory_ + "/socket";
   HttpServer::Limits limits_;
   HttpHandler handler_ = []( HttpRequest const & ) { return HttpAnswer(); };
};

}  // namespace Host
