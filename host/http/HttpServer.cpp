#include "http/HttpServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "log/SystemLog.h"

namespace Host {

namespace asio = boost::asio;
using Shared = HttpConnection::Shared;

namespace {

constexpr std::chrono::milliseconds firstPause( 10 );
constexpr std::chrono::milliseconds longestPause( 1000 );
// At a time, so that a crowd does not keep the loop from its other work.
constexpr int refusedWithReserve = 64;

int newReserve() { return ::open( "/dev/null", O_RDONLY | O_CLOEXEC ); }

HttpAnswer tooMany( std::string const & program, std::size_t connections ) {
   return httpError( 503, program + " has " + std::to_string( connections ) + " connections already; try again" );
}

// Says so without waiting for anything, and reads what the client has sent so far, as otherwise it might lose the
// answer.
void cutOff( int socket, HttpAnswer const & answer ) {
   std::string const text = httpHead( answer, false, std::time( nullptr ) ) + answer.body;
   if( ::send( socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL ) < 0 ) return;
   char dropped[RequestReader::headMax];
   static_cast<void>( !::recv( socket, dropped, sizeof dropped, MSG_DONTWAIT ) );
}

}  // namespace

HttpServer::HttpServer( AsioLoop & loop, Place place, HttpHandler handler, Limits const & limits )
   : listening_( place.address.empty()
                    ? ListeningSocket( loop.io(), std::move( place.path ), place.mode, place.program )
                    : ListeningSocket( loop.io(), place.address ) ),
     shared_(
        new Shared{ loop, std::move( handler ), limits, std::move( place.changesAt ), std::move( place.program ) } ),
     pause_( loop.io() ),
     reserve_( newReserve() ) {
   accept();
}

HttpServer::~HttpServer() {
   dropStreams();
   if( reserve_ >= 0 ) ::close( reserve_ );
}

void HttpServer::stop( std::function<void()> done ) {
   listening_.acceptor().close();
   pause_.cancel();
   if( shared_->streaming.empty() ) return done();
   shared_->allSent = std::move( done );
   // Each may leave while it is told.
   auto const streaming = shared_->streaming;
   for( HttpConnection * const connection : streaming ) connection->stopStream();
}

void HttpServer::dropStreams() {
   shared_->allSent = {};
   auto const streaming = shared_->streaming;
   for( HttpConnection * const connection : streaming ) connection->leaveStream();
}

void HttpServer::accept() {
   listening_.acceptor().async_accept( [this]( boost::system::error_code error, Socket socket ) {
      // The acceptor is going.
      if( error == asio::error::operation_aborted ) return;
      if( error ) return onTrouble( error );
      pauseLength_ = {};
      take( std::move( socket ) );
      accept();
   } );
}

void HttpServer::take( Socket socket ) {
   auto const & limits = shared_->limits;
   if( shared_->served < limits.connections ) {
      std::make_shared<HttpConnection>( std::move( socket ), shared_, &Shared::served )->serve();
   } else if( shared_->refused < limits.refusals ) {
      std::make_shared<HttpConnection>( std::move( socket ), shared_, &Shared::refused )
         ->refuse( tooMany( shared_->program, limits.connections ) );
   } else {
      cutOff( socket.native_handle(), tooMany( shared_->program, limits.connections ) );
   }
}

void HttpServer::onTrouble( boost::system::error_code error ) {
   if( pauseLength_ == pauseLength_.zero() ) {
      logLine( Service::Severity::error, "no connections can be taken: " + error.message() );
   }
   refuseWithReserve();
   pauseLength_ = std::clamp( 2 * pauseLength_, firstPause, longestPause );
   pause_.expires_after( pauseLength_ );
   pause_.async_wait( [this]( boost::system::error_code cancelled ) {
      if( !cancelled ) accept();
   } );
}

void HttpServer::refuseWithReserve() {
   if( reserve_ >= 0 ) ::close( std::exchange( reserve_, -1 ) );
   auto const answer = httpError( 503, shared_->program + " has no descriptor left for a connection; try again" );
   for( int i = 0; i < refusedWithReserve; ++i ) {
      int const socket = ::accept4( listening_.acceptor().native_handle(), nullptr, nullptr, SOCK_CLOEXEC );
      if( socket < 0 ) break;
      cutOff( socket, answer );
      ::close( socket );
   }
   reserve_ = newReserve();
}

}  // namespace Host
