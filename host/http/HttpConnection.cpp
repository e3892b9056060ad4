#include "http/HttpConnection.h"

#include <pwd.h>
#include <sys/socket.h>

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <cstring>
#include <sstream>

#include "http/Guarded.h"
#include "log/SystemLog.h"

namespace Host {

namespace asio = boost::asio;

namespace {

// What a client may still send when its connection ends.
constexpr std::size_t partingBytes = 1024 * 1024;

// Who connected, as the kernel noted it then (SO_PEERCRED in unix(7)).
struct Peer {
   std::string name = "unknown";
   std::string uid = "unknown";
};

Peer peerOf( HttpConnection::Socket & socket ) {
   ucred peer{};
   socklen_t length = sizeof peer;
   if( ::getsockopt( socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &length ) != 0 ) return {};
   std::string const uid = std::to_string( peer.uid );
   passwd const * const entry = ::getpwuid( peer.uid );
   return { entry ? entry->pw_name : uid, uid };
}

// Whence a connection over TCP comes, "192.0.2.7:40112"; empty on a unix socket, and only there: who may change
// something hangs on it. So it is our own end that tells which it is, as the other may have gone by now.
std::string addressOf( HttpConnection::Socket & socket ) {
   boost::system::error_code error;
   auto const own = socket.local_endpoint( error );
   if( !error && own.protocol().family() == AF_UNIX ) return {};
   std::string const gone = "somebody who has gone";
   auto const end = socket.remote_endpoint( error );
   if( error ) return gone;
   asio::ip::tcp::endpoint address;
   if( end.size() > address.capacity() ) return gone;
   std::memcpy( address.data(), end.data(), end.size() );
   address.resize( end.size() );
   std::ostringstream text;
   text << address;
   return std::move( text ).str();
}

std::string whoAsked( Peer const & peer, HttpRequest const & request, HttpAnswer const & answer ) {
   if( request.address.empty() ) return peer.name + " (uid " + peer.uid + ")";
   return answer.by.empty() ? request.address : answer.by + " (" + request.address + ")";
}

void tellChange( Peer const & peer, HttpRequest const & request, HttpAnswer const & answer ) {
   // An event tells what came of it; this, which request that was.
   std::string const text = whoAsked( peer, request, answer ) + ": " + request.method + " " + request.target + ": " +
                            std::to_string( answer.status ) + ( answer.outcome.empty() ? "" : ", " ) + answer.outcome;
   logLine( Service::Severity::info, text );
}

HttpAnswer failure( HttpRequest const & request, std::string const & what ) {
   std::string const text = request.method + " " + request.target + " failed: " + what;
   logLine( Service::Severity::error, text );
   return httpError( 500, text );
}

}  // namespace

HttpConnection::HttpConnection( Socket socket, std::shared_ptr<Shared> shared, std::size_t Shared::*count )
   : shared_( std::move( shared ) ),
     count_( count ),
     socket_( std::move( socket ) ),
     deadline_( socket_.get_executor() ) {
   ++( shared_.get()->*count_ );
}

HttpConnection::~HttpConnection() {
   nothingMoreToStream();
   shared_->unreadBytes -= body_.size();
   --( shared_.get()->*count_ );
}

void HttpConnection::deadlineIs( std::chrono::milliseconds fromNow ) {
   expired_ = false;
   deadline_.expires_after( fromNow );
   // Weak, as a connection that has ended need not wait for its deadline.
   deadline_.async_wait( [weak = weak_from_this()]( Error error ) {
      auto const self = weak.lock();
      if( !error && self ) self->expire();
   } );
}

void HttpConnection::expire() {
   // Of a piece that is sent by now, as it happened at the same moment.
   if( stream_ && ( !sending_ || deadline_.expiry() > std::chrono::steady_clock::now() ) ) return;
   // What has just come about is not to be cancelled any more. It is for read() to see that nothing else may begin.
   expired_ = true;
   Error ignored;
   // Writing goes on by itself, piece by piece, as long as there is a socket.
   sending_ ? socket_.close( ignored ) : socket_.cancel( ignored );
}

void HttpConnection::serve() {
   deadlineIs( shared_->limits.idle );
   read();
}

void HttpConnection::refuse( HttpAnswer const & answer ) { send( answer, false ); }

void HttpConnection::read() {
   if( expired_ ) return onRead( asio::error::operation_aborted, 0 );
   auto const room = reader_.room();
   socket_.async_read_some(
      asio::buffer( room.data(), room.size() ),
      [self = shared_from_this()]( Error error, std::size_t bytes ) { self->onRead( error, bytes ); } );
}

void HttpConnection::onRead( Error error, std::size_t bytes ) {
   bool const wasIdle = reader_.state() == RequestReader::State::idle;
   if( !error ) {
      reader_.received( bytes );
      if( wasIdle && reader_.state() != RequestReader::State::idle ) deadlineIs( shared_->limits.request );
      return goOn();
   }
   if( error == asio::error::eof ) reader_.ended();
   if( error == asio::error::operation_aborted ) reader_.late();
   // One that has not begun a request is owed no answer.
   if( reader_.state() == RequestReader::State::refused ) goOn();
}

void HttpConnection::goOn() {
   switch( reader_.state() ) {
      case RequestReader::State::idle: return read();
      case RequestReader::State::reading: return reader_.takeContinue() ? leaveToSend() : read();
      case RequestReader::State::complete: return answer();
      case RequestReader::State::refused: return send( reader_.refusal(), false );
   }
}

void HttpConnection::leaveToSend() {
   static constexpr std::string_view text = "HTTP/1.1 100 Continue\r\n\r\n";
   asio::async_write( socket_, asio::buffer( text ), [self = shared_from_this()]( Error error, std::size_t ) {
      if( !error ) self->read();
   } );
}

void HttpConnection::answer() {
   HttpRequest request = reader_.request();
   bool const changes = request.method == "POST";
   if( !changes && shared_->unreadBytes > shared_->limits.unreadBytes )
      return send( httpError( 503, "too many answers wait for those who asked to read them; try again" ), false );
   bool const onlyReads = request.method == "GET" || request.method == "OPTIONS";
   if( !onlyReads && !shared_->changesAt.empty() )
      return send( httpError( 403, "nothing is changed by this socket, which is for everyone; changes are taken at " +
                                      shared_->changesAt ),
                   reader_.keepAlive() );
   // Only where something changes: the user's name may come from a directory on the network, and a client that
   // follows an entry asks several times a second.
   if( changes ) request.address = addressOf( socket_ );
   Peer const peer = changes && request.address.empty() ? peerOf( socket_ ) : Peer{ "", "" };
   request.user = peer.name;
   HttpAnswer answer = answered( request );
   if( changes ) tellChange( peer, request, answer );
   if( answer.stream && shared_->streams >= shared_->limits.streams )
      // Parted with: those who cannot watch are not to keep others from asking.
      return send( httpError( 503, shared_->program + " serves " + std::to_string( shared_->streams ) +
                                      " streams already; try again when one has ended" ),
                   false );
   send( std::move( answer ), reader_.keepAlive() );
}

HttpAnswer HttpConnection::answered( HttpRequest const & request ) const {
   HttpAnswer answer;
   // In a turn, so that the answer shows one moment, and what the request caused follows at once. Nothing but the
   // request's own part of it is guarded.
   auto const orFailure = [&]( std::optional<std::string> const & why ) {
      if( why ) answer = failure( request, *why );
   };
   shared_->loop.turn( [&] { orFailure( guarded( [&] { answer = shared_->handler( request ); } ) ); } );
   if( auto const afterTurn = std::move( answer.afterTurn ) ) orFailure( guarded( [&] { afterTurn( answer ); } ) );
   return answer;
}

void HttpConnection::send( HttpAnswer answer, bool keepAlive ) {
   // Nobody knows how a stream ends.
   keepAlive = keepAlive && !answer.stream;
   head_ = httpHead( answer, keepAlive, std::time( nullptr ), reader_.takesChunks() );
   if( answer.stream && !reader_.headOnly() ) return stream( std::move( answer ) );
   body_ = reader_.headOnly() ? std::string() : std::move( answer.body );
   shared_->unreadBytes += body_.size();
   deadlineIs( shared_->limits.answer );
   sending_ = true;
   std::array const message{ asio::buffer( head_ ), asio::buffer( body_ ) };
   asio::async_write( socket_, message, [self = shared_from_this(), keepAlive]( Error error, std::size_t ) {
      self->onSent( error, keepAlive );
   } );
}

void HttpConnection::onSent( Error error, bool keepAlive ) {
   sending_ = false;
   shared_->unreadBytes -= body_.size();
   // Not clear(), which keeps the memory.
   body_ = std::string();
   if( error ) return;
   if( !keepAlive ) {
      socket_.shutdown( Socket::shutdown_send, error );
      deadlineIs( shared_->limits.parting );
      return part( partingBytes );
   }
   reader_.next();
   // What the client has sent behind the last request may be the next, or its beginning.
   bool const begun = reader_.state() != RequestReader::State::idle;
   deadlineIs( begun ? shared_->limits.request : shared_->limits.idle );
   goOn();
}

void HttpConnection::part( std::size_t bytesLeft ) {
   auto const room = reader_.scratch();
   socket_.async_read_some( asio::buffer( room.data(), room.size() ),
                            [self = shared_from_this(), bytesLeft]( Error error, std::size_t bytes ) {
                               bool const more = !error && !self->expired_ && bytes < bytesLeft;
                               if( more ) self->part( bytesLeft - bytes );
                            } );
}

}  // namespace Host
