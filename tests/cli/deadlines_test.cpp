// maintctl and a daemon that does not answer, or does not stop answering.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "Maintctl.h"

namespace Cli {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using Deadlines = Maintctl;

constexpr double requestSeconds = 10;
constexpr double grace = 8;  // s, for a machine that is busy

std::string const endlessHeader = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\n";

void neverAnswers( int connection, std::string const & ) { waitUntilClosed( connection ); }

// A byte each tenth of a second, of an answer that never ends.
void drips( int connection, std::string const & ) {
   if( !sent( connection, endlessHeader ) ) return;
   while( sent( connection, " " ) ) ::usleep( 100000 );
}

// As many connections as the kernel lets wait, none of which is taken.
std::vector<int> fill( std::string const & path ) {
   sockaddr_un address{ .sun_family = AF_UNIX, .sun_path = {} };
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   std::vector<int> connections;
   while( true ) {
      connections.push_back( ::socket( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0 ) );
      if( ::connect( connections.back(), reinterpret_cast<sockaddr const *>( &address ), sizeof address ) != 0 )
         return connections;
   }
}

// All at once, because each takes its ten seconds.
TEST_F( Deadlines, holdForOneRequestWhateverTheDaemonDoes ) {
   FakeDaemon const silent( path( "silent" ), neverAnswers, {} );
   FakeDaemon const stopped( path( "stopped" ), neverAnswers, {} );
   stopped.stop();
   FakeDaemon const full( path( "full" ), neverAnswers, { .backlog = 1 } );
   full.stop();
   auto const waiting = fill( path( "full" ) );
   FakeDaemon const dripping( path( "dripping" ), drips, {} );
   std::vector<Running> running;
   for( char const * name : { "silent", "stopped", "full", "dripping" } ) {
      running.push_back( begun( { "--socket", path( name ), "units" }, {} ) );
   }
   running.push_back( begun( { "--socket", path( "silent" ), "dump" }, {} ) );
   running.push_back( begun( { "--socket", path( "stopped" ), "enter", "fabric" }, {} ) );
   std::vector<std::string> told;
   for( Running const & each : running ) {
      Result const result = ended( each );
      EXPECT_EQ( result.status, 5 ) << result.err;
      EXPECT_GE( result.seconds, requestSeconds - 0.1 ) << result.err;
      EXPECT_LE( result.seconds, requestSeconds + grace ) << result.err;
      told.push_back( result.err );
   }
   EXPECT_THAT( told, Each( Not( HasSubstr( "Start it with" ) ) ) );
   EXPECT_THAT( told[0], HasSubstr( "in 10 s: GET /v1/units\n" ) );
   EXPECT_THAT( told[2], HasSubstr( "takes no connection: it is stopped, or too busy\n" ) );
   // Nobody knows what a request that was sent has done.
   EXPECT_THAT( told[5], HasSubstr( "POST /v1/units/fabric/enter; it may have been carried out, or may still be\n" ) );
   for( int const fd : waiting ) ::close( fd );
}

TEST_F( Deadlines, ofTheCallerComeFirst ) {
   auto const entering = ok( [] {
      Service::UnitAnswer unit;
      unit.unit = "fabric";
      unit.state = "entering";
      return unit;
   }() );
   auto const started = ok( Service::RequestAnswer{ "enter", "fabric", "started", 4, {} } );
   // What it says tells where its time ran out; on a busy machine that may be earlier than it should, and it is asked
   // again.
   auto const expectTimedOut = [&]( char const * timeout, char const * said ) {
      Result entered;
      for( int attempt = 0; attempt < 5; ++attempt ) {
         entered = maintctl( { "enter", "fabric", "--wait", "--timeout", timeout } );
         EXPECT_EQ( entered.status, 3 ) << entered.err;
         EXPECT_LE( entered.seconds, 1 + grace ) << said;
         if( entered.err.find( said ) != std::string::npos ) return;
      }
      EXPECT_THAT( entered.err, HasSubstr( said ) );
   };
   // Not even the request is taken.
   daemonDoes( neverAnswers );
   daemon().stop();
   expectTimedOut( "1s", "maintd has not answered in time: POST" );
   // It is stopped while one waits.
   daemonDoes( [&]( int connection, std::string const & request ) {
      if( request.starts_with( "POST" ) ) {
         sent( connection, started.http() );
      } else {
         waitUntilClosed( connection );
      }
   } );
   expectTimedOut( "1s", "maintd has not answered in time: GET /v1/units/fabric\n" );
   // It answers, and the unit does not arrive; a deadline that is over already leaves time for one look.
   daemonDoes( [&]( int connection, std::string const & request ) {
      ::usleep( 20000 );
      sent( connection, ( request.starts_with( "POST" ) ? started : entering ).http() );
   } );
   expectTimedOut( "1s", "unit fabric is still entering after 1 s" );
   expectTimedOut( "0", "unit fabric is still entering after 0 s" );
   daemonDoes( neverAnswers, { .backlog = 0 } );
   daemon().stop();
   auto const waiting = fill( path( "socket" ) );
   expectTimedOut( "1s", "maintd has not taken the connection in time: POST" );
   for( int const fd : waiting ) ::close( fd );
   for( char const * senseless : { "-1", "nan", "inf", "1e12", "soon" } ) {
      EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", senseless } ).status, 2 ) << senseless;
   }
}

// A reader that waits for the end of such an answer would take all memory first.
TEST_F( Deadlines, anAnswerThatDoesNotEndCostsNoMoreThanItsLimit ) {
   std::string const mebibyte( 1024 * 1024, ' ' );
   // As fast as it is taken until there is more than may be kept, and from then on so that both have time to rest.
   auto const sendsFor = [&]( std::string const & head, std::string const & piece ) {
      daemonDoes( [=]( int connection, std::string const & ) {
         if( !sent( connection, head ) ) return;
         for( std::size_t bytes = 0; sent( connection, piece ); bytes += piece.size() ) {
            if( bytes > 64 * mebibyte.size() ) ::usleep( 10'000 );
         }
      } );
   };
   auto const times = []( int count, std::string const & text ) {
      std::string all;
      for( int i = 0; i < count; ++i ) all += text;
      return all;
   };
   auto const refused = [&]( Words const & words, char const * told ) {
      auto const result = maintctl( words );
      EXPECT_EQ( result.status, 5 );
      EXPECT_THAT( result.err, HasSubstr( told ) );
#ifdef RATEMON_SANITIZED
      // What was freed is kept back for a while, up to 256 MiB, and has a shadow of an eighth.
      return std::max<long>( result.memoryKilobytes / 1024 - 450, 0 );
#else
      return result.memoryKilobytes / 1024;
#endif
   };
   sendsFor( endlessHeader, mebibyte );
   EXPECT_LT( refused( { "units" }, "the answer is larger than 16 MiB" ), 100 );
   EXPECT_LT( refused( { "get", "a" }, "the answer is larger than 256 MiB" ), 800 );
   sendsFor( "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n",
             "100000\r\n" + mebibyte + "\r\n" );
   EXPECT_LT( refused( { "units" }, "the answer is larger than 16 MiB" ), 100 );
   sendsFor( "HTTP/1.1 200 OK\r\nContent-Length: 17179869184\r\n\r\n", mebibyte );
   EXPECT_LT( refused( { "dump" }, "the answer is larger than 256 MiB" ), 50 );
   // No body at all: a header, an interim answer, the head of a chunk.
   sendsFor( "HTTP/1.1 200 OK\r\n", times( 10'000, "X: y\r\n" ) );
   EXPECT_LT( refused( { "units" }, "did not answer" ), 50 );
   sendsFor( "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1", std::string( 65536, ';' ) );
   EXPECT_LT( refused( { "units" }, "did not answer" ), 50 );
   sendsFor( "", times( 4'000, "HTTP/1.1 102 x\r\n\r\n" ) );
   EXPECT_LT( refused( { "units" }, "did not answer" ), 50 );
}

// Nothing is cut off that comes slowly but comes, where much may come.
TEST_F( Deadlines, aDumpMayTakeItsTime ) {
   daemonDoes( []( int connection, std::string const & ) {
      sent( connection, "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 24\r\n\r\n" );
      for( int i = 0; i < 12; ++i ) {
         ::sleep( 1 );
         sent( connection, "x\n" );
      }
   } );
   auto const dump = maintctl( { "dump" } );
   EXPECT_EQ( dump.status, 0 ) << dump.err;
   EXPECT_EQ( dump.out.size(), 24U );
   EXPECT_GT( dump.seconds, requestSeconds + 1 );
}

}  // namespace
}  // namespace Cli
