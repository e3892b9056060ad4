// The API's socket: who is at the other end of it, how many, and how slow.
#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include "AllDescriptors.h"
#include "HttpServerTest.h"
#include "kel/Exception.h"

namespace Host {
namespace {

using Protocol = boost::asio::local::stream_protocol;
using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

std::string const getA = "GET /a HTTP/1.1\r\nHost: x\r\n\r\n";

// Asked for only where something changes, as the name may come from far away.
TEST_F( HttpServerTest, saysWhoAsksForAChange ) {
   std::vector<HttpRequest> requests;
   handler_ = [&]( HttpRequest const & request ) {
      requests.push_back( request );
      return HttpAnswer();
   };
   auto const running = server();
   auto client = asking( getA + "POST /b?c=d HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n" );
   ASSERT_TRUE( runUntil( [&] { return requests.size() == 2; } ) );
   EXPECT_EQ( requests[0].method, "GET" );
   EXPECT_EQ( requests[0].user, "" );
   EXPECT_EQ( requests[1].target, "/b?c=d" );
   passwd const * const me = ::getpwuid( ::geteuid() );
   EXPECT_EQ( requests[1].user, me ? me->pw_name : std::to_string( ::geteuid() ) );
}

TEST_F( HttpServerTest, aHandlerThatThrowsCostsOnlyItsRequest ) {
   bool over = false;
   handler_ = [&]( HttpRequest const & request ) -> HttpAnswer {
      if( request.target == "/throw" ) throw std::out_of_range( "no such thing" );
      if( request.target == "/late" )
         return { .body = "", .afterTurn = []( HttpAnswer & ) { throw std::bad_alloc(); } };
      if( request.target == "/broken" ) throw Kel::InternalException( "broken" );
      if( request.target == "/range" ) throw Kel::RangeError( "range" );
      over = true;
      return { .body = "fine" };
   };
   auto const running = server();
   auto client = asking(
      "GET /throw HTTP/1.1\r\nHost: x\r\n\r\nGET /late HTTP/1.1\r\nHost: x\r\n\r\n"
      "GET /a HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n" );
   std::string const answers = said( client );
   EXPECT_THAT( answers, StartsWith( "HTTP/1.1 500 " ) );
   EXPECT_THAT( answers, HasSubstr( "{\"error\": \"GET /throw failed: no such thing\"}" ) );
   EXPECT_THAT( answers, HasSubstr( "GET /late failed: std::bad_alloc" ) );
   EXPECT_THAT( answers, HasSubstr( "fine" ) );
   EXPECT_TRUE( over );
   // What is behind these is broken, and nobody may be served from it.
   auto const broken = asking( "GET /broken HTTP/1.1\r\nHost: x\r\n\r\n" );
   EXPECT_THROW( runUntil( [] { return false; } ), Kel::InternalException );
   auto const range = asking( "GET /range HTTP/1.1\r\nHost: x\r\n\r\n" );
   EXPECT_THROW( runUntil( [] { return false; } ), Kel::RangeError );
}

TEST_F( HttpServerTest, theConnectionTooManyIsToldSo ) {
   limits_.connections = 2;
   limits_.refusals = 1;
   auto const running = server();
   auto one = connected();
   auto two = connected();
   // Of these, one is parted with and the other cut off at once.
   auto three = asking( "POST /a HTTP/1.1\r\nHost: x\r\nContent-Length: 60000\r\n\r\n" );
   auto four = asking( getA );
   EXPECT_THAT( said( three ), StartsWith( "HTTP/1.1 503 " ) );
   EXPECT_THAT( said( four ), HasSubstr( "has 2 connections already" ) );
   // The one that is still sending does not lose its answer by that.
   EXPECT_EQ( ::send( three.native_handle(), "x", 1, MSG_NOSIGNAL ), 1 );
   one.close();
   three.close();
   ASSERT_TRUE( runUntil( [&] {
      auto five = asking( getA );
      std::string text;
      runUntil( [&] { return drained( five, text ) || !text.empty(); } );
      return text.starts_with( "HTTP/1.1 200 " );
   } ) );
}

TEST_F( HttpServerTest, whoIsTooSlowIsCutOff ) {
   limits_.request = milliseconds( 50 );
   auto running = server();
   auto slow = asking( "GET /a HTTP/1.1\r\n" );
   EXPECT_THAT( said( slow ), StartsWith( "HTTP/1.1 408 " ) );
   // A byte now and then is no excuse.
   auto busy = asking( "GET /a HTTP/1.1\r\nX: " );
   std::string answer;
   EXPECT_TRUE( runUntil( [&] {
      static_cast<void>( !::send( busy.native_handle(), "x", 1, MSG_NOSIGNAL ) );
      loop_.io().run_for( milliseconds( 2 ) );
      return drained( busy, answer ) || !answer.empty();
   } ) );
   EXPECT_THAT( answer, StartsWith( "HTTP/1.1 408 " ) );

   limits_ = { .idle = milliseconds( 50 ) };
   running.reset();
   running = server();
   auto idle = asking( getA );
   answer = said( idle );
   EXPECT_THAT( answer, StartsWith( "HTTP/1.1 200 " ) );
   EXPECT_EQ( answer.find( "HTTP/1.1", 1 ), std::string::npos ) << answer;
}

TEST_F( HttpServerTest, whoDoesNotReadIsCutOffAndTakesNoMoreThanHisShare ) {
   limits_.unreadBytes = 1'000'000;
   int made = 0;
   handler_ = [&]( HttpRequest const & request ) {
      ++made;
      return HttpAnswer{ .body = request.method == "POST" ? "" : std::string( 2'000'000, 'x' ) };
   };
   auto running = server();
   auto const unread = asking( getA + getA );
   ASSERT_TRUE( runUntil( [&] { return made == 1; } ) );
   // As long as that answer is not read no other is made, not even for the same client.
   auto other = asking( getA );
   EXPECT_THAT( said( other ), StartsWith( "HTTP/1.1 503 " ) );
   auto const change = asking( "POST /a HTTP/1.1\r\nHost: x\r\n\r\n" );
   EXPECT_TRUE( runUntil( [&] { return made == 2; } ) );
   // Where there is less time the reader is given up: the rest of his answer does not come, and the room is there
   // again.
   limits_.answer = milliseconds( 100 );
   running.reset();
   running = server();
   auto client = asking( getA + getA );
   ASSERT_TRUE( runUntil( [&] { return made == 3; } ) );
   ASSERT_TRUE( runUntil( [&] { return givenUp( client ); } ) );
   EXPECT_LT( said( client ).size(), 2'000'000u );
   auto const next = asking( getA );
   EXPECT_TRUE( runUntil( [&] { return made == 4; } ) );
}

TEST_F( HttpServerTest, withoutDescriptorsItSaysSoAndDoesNotSpin ) {
   auto const running = server();
   auto const attempt = [&] {
      Protocol::socket client( loop_.io(), Protocol() );
      client.non_blocking( true );
      return client;
   };
   auto one = attempt();
   auto two = attempt();
   auto three = attempt();
   {
      AllDescriptors const all;
      ASSERT_EQ( all.error(), EMFILE );
      for( auto * const client : { &one, &two } ) {
         client->connect( Protocol::endpoint( path_ ) );
         boost::asio::write( *client, boost::asio::buffer( getA ) );
      }
      EXPECT_THAT( said( one ), HasSubstr( "no descriptor left" ) );
      EXPECT_THAT( said( two ), StartsWith( "HTTP/1.1 503 " ) );
      int handlers = 0;
      auto const end = std::chrono::steady_clock::now() + milliseconds( 200 );
      while( std::chrono::steady_clock::now() < end ) {
         handlers += static_cast<int>( loop_.io().run_one_until( end ) );
      }
      EXPECT_LT( handlers, 20 );
      three.connect( Protocol::endpoint( path_ ) );
      boost::asio::write( three, boost::asio::buffer( getA ) );
      EXPECT_THAT( said( three ), HasSubstr( "no descriptor left" ) );
   }
   auto four = asking( "GET /a HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n" );
   EXPECT_THAT( said( four ), StartsWith( "HTTP/1.1 200 " ) );
}

TEST_F( HttpServerTest, replacesOnlyWhatADeadServerLeft ) {
   {
      // Gone without unlinking it.
      Protocol::acceptor const left( loop_.io(), Protocol::endpoint( path_ ) );
   }
   EXPECT_TRUE( fs::exists( path_ ) );
   auto running = server();
   struct stat file {};
   ASSERT_EQ( ::stat( path_.c_str(), &file ), 0 );
   EXPECT_EQ( file.st_mode & 07777, 0660u );
   EXPECT_THAT( refused(), HasSubstr( "another maintd answers at " + path_ ) );
   EXPECT_TRUE( fs::exists( path_ ) );
   running.reset();
   EXPECT_FALSE( fs::exists( path_ ) );

   std::ofstream( path_ ) << "precious";
   EXPECT_THAT( refused(), HasSubstr( "there is a regular file" ) );
   EXPECT_EQ( fs::file_size( path_ ), 8u );
   fs::rename( path_, directory_ + "/file" );
   fs::create_symlink( "file", path_ );
   EXPECT_THAT( refused(), HasSubstr( "there is a symbolic link" ) );
   EXPECT_TRUE( fs::is_symlink( path_ ) );
   fs::remove( path_ );
   fs::create_directory( path_ );
   EXPECT_THAT( refused(), HasSubstr( "there is a directory" ) );
}

// Its process may be stopped for a while.
TEST_F( HttpServerTest, aSocketWhoseQueueIsFullIsInUse ) {
   Protocol::acceptor busy( loop_.io(), Protocol::endpoint( path_ ) );
   ASSERT_EQ( ::listen( busy.native_handle(), 0 ), 0 );
   std::vector<Protocol::socket> waiting;
   Protocol::endpoint const endpoint( path_ );
   do {
      waiting.emplace_back( loop_.io(), Protocol() );
      waiting.back().native_non_blocking( true );
   } while( ::connect( waiting.back().native_handle(), endpoint.data(), static_cast<socklen_t>( endpoint.size() ) ) ==
            0 );
   ASSERT_EQ( errno, EAGAIN );
   EXPECT_THAT( refused(), HasSubstr( "another maintd answers" ) );
   EXPECT_TRUE( fs::exists( path_ ) );
}

TEST_F( HttpServerTest, removesOnlyItsOwnSocket ) {
   auto first = server();
   fs::rename( path_, directory_ + "/moved" );
   auto second = server();
   first.reset();
   EXPECT_TRUE( fs::exists( path_ ) );
   EXPECT_TRUE( fs::exists( directory_ + "/moved" ) );
   fs::remove( path_ );
   auto third = server();
   second.reset();
   EXPECT_TRUE( fs::exists( path_ ) );
   fs::rename( path_, directory_ + "/moved" );
   { Protocol::acceptor const dead( loop_.io(), Protocol::endpoint( path_ ) ); }
   third.reset();
   EXPECT_TRUE( fs::exists( path_ ) );
   auto fourth = server();
   fs::remove( path_ );
   std::ofstream( path_ ) << "precious";
   fourth.reset();
   EXPECT_TRUE( fs::exists( path_ ) );
}

// Due again and again, as samples are, and counts how much else was done between the time that it was due and its turn.
class Sampler final : public Kel::Clock::NotifieeConst {
 public:
   Sampler( Kel::ActivityLoop & loop, int const & handlers )
      : NotifieeConst( loop.clock() ), handlers_( handlers ), due_( loop.clock()->now() + interval ) {
      timeMinIs( due_ );
   }
   [[nodiscard]] double due() const { return due_; }  // s
   // Between two handlers of the loop.
   void look( double now ) {
      if( now >= due_ && handlersWhenDue_ < 0 ) handlersWhenDue_ = handlers_;
   }
   void onTimeMin() override {
      if( handlersWhenDue_ >= 0 ) worst = std::max( worst, handlers_ - handlersWhenDue_ );
      handlersWhenDue_ = -1;
      latest = std::max( latest, Kel::now() - due_ );
      ++samples;
      due_ = Kel::now() + interval;
      timeMinIs( due_ );
   }

   static constexpr double interval = 0.05;  // s
   std::size_t samples = 0;
   int worst = 0;
   double latest = 0;  // s

 private:
   int const & handlers_;
   double due_;
   int handlersWhenDue_ = -1;
};

// Whoever is ready at the same moment may come before it, most of them once: those who are served, those who are parted
// with, and who is taken. Where the machine has other things to do bursts run into each other, or a sample comes before
// its burst: so the middle one of the last five counts, when 150 clients and more are there.
TEST_F( HttpServerTest, aCrowdOfClientsKeepsNoSampleWaiting ) {
   auto const running = server();
   int handlers = 0;
   Sampler sampler( activityLoop_, handlers );
   std::vector<Protocol::socket> slow;
   std::string const request = "GET /" + std::string( 4000, 'a' ) + " HTTP/1.1\r\n\r\n";
   std::vector<Protocol::socket> crowd;
   // Stopped as it begins: it waits for its timer from then on, and its handlers are run one by one below.
   loop_.stop();
   loop_.run();
   loop_.io().restart();
   auto const runUntilClockShows = [&]( double end ) {
      for( double now = 0; ( now = activityLoop_.clock()->now() ) < end; ) {
         sampler.look( now );
         handlers += static_cast<int>(
            loop_.io().run_one_for( std::chrono::microseconds( static_cast<long>( ( end - now ) * 1e6 ) ) ) );
      }
   };
   std::vector<int> last;
   for( std::size_t burst = 0; burst < 20; ++burst ) {
      sampler.worst = 0;
      // The waiting for handlers has a resolution of a millisecond.
      runUntilClockShows( sampler.due() - 0.004 );
      for( int i = 0; i < 10; ++i ) slow.push_back( connected() );
      // All of these are ready at the same time, if only with a byte.
      for( auto & client : slow ) {
         static_cast<void>( !::send( client.native_handle(), &request[burst], 1, MSG_NOSIGNAL | MSG_DONTWAIT ) );
      }
      for( int i = 0; i < 50; ++i ) crowd.push_back( asking( getA ) );
      // The sample becomes due behind all of them.
      while( activityLoop_.clock()->now() < sampler.due() ) continue;
      std::size_t const before = sampler.samples;
      while( sampler.samples == before ) runUntilClockShows( activityLoop_.clock()->now() + 0.002 );
      for( auto & client : crowd ) {
         std::string text;
         ASSERT_TRUE( runUntil( [&] { return drained( client, text ) || !text.empty(); } ) );
         EXPECT_THAT( text, StartsWith( "HTTP/1.1 " ) );
      }
      crowd.clear();
      if( burst >= 15 ) last.push_back( sampler.worst );
   }
   RecordProperty( "latestSampleMicroseconds", static_cast<int>( sampler.latest * 1e6 ) );
   std::ranges::sort( last );
   RecordProperty( "handlersBeforeASample", last[2] );
   EXPECT_LE( last[2], ( 64 + 16 + 1 ) * 5 / 4 );
}

}  // namespace
}  // namespace Host
