// Answers that go on: chunked, piece by piece, for as long as the client reads and there is something to come.
#include <gmock/gmock.h>

#include "HttpServerTest.h"

namespace Host {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string const watch = "GET /w HTTP/1.1\r\nHost: x\r\n\r\n";

// The server's end of it: lines that a test adds, for all streams alike, from the beginning.
class LineSource {
 public:
   class Stream;

   void add( std::string const & text );
   void tellAll() const;

   std::vector<std::string> lines;
   bool over = false;
   std::set<Stream *> open;
   std::size_t asked = 0;         // how often for a next piece
   std::size_t largestAsked = 0;  // bytes
};

class LineSource::Stream final : public HttpStream {
 public:
   explicit Stream( LineSource & source ) : source_( source ) { source_.open.insert( this ); }
   ~Stream() override { source_.open.erase( this ); }
   std::string next( std::size_t bytes ) override {
      EXPECT_TRUE( Kel::activityLoop().inTurn() );
      ++source_.asked;
      source_.largestAsked = std::max( source_.largestAsked, bytes );
      std::string piece;
      while( place_ < source_.lines.size() && piece.size() < bytes ) piece += source_.lines[place_++];
      if( piece == "throw\n" ) throw std::runtime_error( "no more lines" );
      if( stopping_ && !std::exchange( saidSo_, true ) ) piece += "stopping\n";
      return piece;
   }
   bool ended() const override { return source_.over && place_ == source_.lines.size(); }
   void onMore( std::function<void()> more ) override { more_ = std::move( more ); }
   void stop() override { stopping_ = true; }
   std::function<void()> more_;

 private:
   LineSource & source_;
   std::size_t place_ = 0;
   bool stopping_ = false;
   bool saidSo_ = false;
};

void LineSource::add( std::string const & text ) {
   lines.push_back( text );
   tellAll();
}

void LineSource::tellAll() const {
   for( Stream * const stream : open ) stream->more_();
}

class HttpStreams : public HttpServerTest {
 protected:
   HttpStreams() {
      handler_ = [this]( HttpRequest const & ) { return httpLines( std::make_shared<LineSource::Stream>( lines_ ) ); };
   }
   // What was read of it so far, with the server's loop running.
   std::string soFar( Protocol::socket & client, std::string const & end ) {
      std::string text;
      EXPECT_TRUE( runUntil( [&] { return drained( client, text ) || text.ends_with( end ); } ) ) << text;
      return text;
   }
   // Reads a piece each 20 ms until the end, and returns the longest time between two: where the machine has other
   // things to do it may be as long as that of someone who has stopped reading.
   milliseconds readSlowly( Protocol::socket & client, std::string & text ) {
      milliseconds longest( 0 );
      auto last = steady_clock::now();
      EXPECT_TRUE( runUntil( [&] {
         loop_.io().run_for( milliseconds( 10 ) );
         longest = std::max( longest, std::chrono::duration_cast<milliseconds>( steady_clock::now() - last ) );
         last = steady_clock::now();
         char piece[30'000];
         boost::system::error_code error;
         text.append( piece, client.read_some( boost::asio::buffer( piece ), error ) );
         return error && error != boost::asio::error::would_block;
      } ) );
      return longest;
   }
   LineSource lines_;
};

TEST_F( HttpStreams, comeInChunksAsTheyComeAbout ) {
   auto const running = server();
   lines_.add( "one\n" );
   auto client = asking( watch );
   std::string const begin = soFar( client, "one\n\r\n" );
   EXPECT_THAT( begin, StartsWith( "HTTP/1.1 200 OK\r\n" ) );
   EXPECT_THAT( begin, HasSubstr( "Content-Type: application/x-ndjson\r\n" ) );
   EXPECT_THAT( begin, Not( HasSubstr( "Content-Length" ) ) );
   EXPECT_THAT( begin, EndsWith( "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n4\r\none\n\r\n" ) );
   // Said from within a turn, a line is sent after it, and two of one turn together.
   loop_.turn( [&] {
      lines_.add( "two\n" );
      lines_.add( "and twelve\n" );
   } );
   EXPECT_EQ( soFar( client, "twelve\n\r\n" ), "f\r\ntwo\nand twelve\n\r\n" );
   lines_.over = true;
   lines_.tellAll();
   EXPECT_EQ( said( client ), "0\r\n\r\n" );
   EXPECT_TRUE( lines_.open.empty() );
}

TEST_F( HttpStreams, areNotInChunksForWhoKnowsNone ) {
   auto const running = server();
   lines_.add( "one\n" );
   auto head = asking( "HEAD /w HTTP/1.1\r\nHost: x\r\n\r\n" );
   EXPECT_THAT( said( head ), EndsWith( "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n" ) );
   EXPECT_TRUE( lines_.open.empty() );
   auto old = asking( "GET /w HTTP/1.0\r\nConnection: keep-alive\r\n\r\n" );
   std::string const begin = soFar( old, "one\n" );
   EXPECT_THAT( begin, EndsWith( "Connection: close\r\n\r\none\n" ) );
   EXPECT_THAT( begin, Not( HasSubstr( "Transfer-Encoding" ) ) );
   lines_.over = true;
   lines_.add( "two\n" );
   EXPECT_EQ( said( old ), "two\n" );
}

// All that waits for him is in one piece and the kernel's buffer, and both are given up after a while.
TEST_F( HttpStreams, ofWhoDoesNotReadAreNotAskedForMoreAndCutOff ) {
   limits_.answer = milliseconds( 300 );
   auto const running = server();
   auto client = asking( watch );
   ASSERT_TRUE( runUntil( [&] { return !lines_.open.empty(); } ) );
   std::string const line = std::string( 999, 'x' ) + "\n";
   for( int i = 0; i < 1000; ++i ) lines_.add( line );
   ASSERT_TRUE( runUntil( [&] { return lines_.open.empty(); } ) );
   EXPECT_LE( lines_.largestAsked, 16'384u );
   EXPECT_LE( lines_.asked, 10u );
   std::string const rest = said( client );
   EXPECT_LT( rest.size(), 200'000u );
   EXPECT_THAT( rest, Not( EndsWith( "0\r\n\r\n" ) ) );

   // Whoever reads a little now and then takes long, and gets all.
   lines_.over = true;
   std::string text;
   for( int attempt = 0; attempt < 10; ++attempt ) {
      auto slow = asking( watch );
      text.clear();
      if( readSlowly( slow, text ) < limits_.answer / 2 ) break;
   }
   EXPECT_GT( text.size(), 1'000'000u );
   EXPECT_THAT( text, EndsWith( "0\r\n\r\n" ) );
}

TEST_F( HttpStreams, endAtOnceWhenTheClientGoes ) {
   auto const running = server();
   for( bool const unread : { false, true } ) {
      auto client = asking( watch );
      ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == 1; } ) );
      if( unread ) lines_.add( "unread\n" );
      client.close();
      EXPECT_TRUE( runUntil( [&] { return lines_.open.empty(); } ) ) << unread;
   }
   // One that only has nothing more to ask goes on, until it goes, too.
   auto half = asking( watch );
   half.shutdown( Protocol::socket::shutdown_send );
   std::string begin = soFar( half, "unread\n\r\n" );
   lines_.add( "more\n" );
   EXPECT_EQ( soFar( half, "more\n\r\n" ), "5\r\nmore\n\r\n" );
   half.close();
   EXPECT_TRUE( runUntil( [&] { return lines_.open.empty(); } ) );
   // And what is sent behind the request is nobody's, but not without end.
   auto talking = asking( watch + watch );
   std::string const noise( 100'000, 'x' );
   EXPECT_TRUE( runUntil( [&] {
      static_cast<void>( !::send( talking.native_handle(), noise.data(), noise.size(), MSG_NOSIGNAL | MSG_DONTWAIT ) );
      return givenUp( talking );
   } ) );
}

TEST_F( HttpStreams, areCountedApartFromConnections ) {
   limits_.streams = 2;
   limits_.connections = 1;
   auto const running = server();
   std::vector<Protocol::socket> clients;
   for( std::size_t i = 1; i <= 2; ++i ) {
      clients.push_back( asking( watch ) );
      ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == i; } ) );
   }
   auto third = asking( watch );
   std::string const refused = said( third );
   EXPECT_THAT( refused, StartsWith( "HTTP/1.1 503 " ) );
   EXPECT_THAT( refused, HasSubstr( "{\"error\": \"maintd serves 2 streams already" ) );
   third.close();
   clients.pop_back();
   ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == 1; } ) );
   auto fourth = asking( watch );
   EXPECT_TRUE( runUntil( [&] { return lines_.open.size() == 2; } ) );
}

TEST_F( HttpStreams, sayTheirLastWhenTheServerStops ) {
   auto running = server();
   lines_.add( "one\n" );
   auto waiting = asking( watch );
   EXPECT_THAT( soFar( waiting, "one\n\r\n" ), EndsWith( "one\n\r\n" ) );
   auto busy = asking( watch );
   ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == 2; } ) );
   lines_.add( std::string( 300'000, 'y' ) + "\n" );
   bool over = false;
   running->stop( [&] { over = true; } );
   EXPECT_THAT( said( waiting ), EndsWith( "stopping\n\r\n0\r\n\r\n" ) );
   EXPECT_FALSE( over );
   EXPECT_THAT( said( busy ), EndsWith( "stopping\n\r\n0\r\n\r\n" ) );
   EXPECT_TRUE( over );
   over = false;
   server()->stop( [&] { over = true; } );
   EXPECT_TRUE( over );
}

TEST_F( HttpStreams, thatThrowEndWithoutAnEnd ) {
   auto const running = server();
   auto client = asking( watch );
   ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == 1; } ) );
   lines_.add( "throw\n" );
   EXPECT_THAT( said( client ), EndsWith( "Connection: close\r\n\r\n" ) );
   EXPECT_TRUE( lines_.open.empty() );
}

// What they read from goes before the connections, which wait in the loop, do.
TEST_F( HttpStreams, areDroppedOnRequest ) {
   auto running = server();
   std::vector<Protocol::socket> clients;
   for( int i = 0; i < 3; ++i ) clients.push_back( asking( watch ) );
   ASSERT_TRUE( runUntil( [&] { return lines_.open.size() == 3; } ) );
   running->dropStreams();
   EXPECT_TRUE( lines_.open.empty() );
}

}  // namespace
}  // namespace Host
