// The part of a connection that sends an answer which goes on.
#include <poll.h>

#include <array>
#include <boost/asio/completion_condition.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <charconv>

#include "http/Guarded.h"
#include "http/HttpConnection.h"
#include "log/SystemLog.h"

namespace Host {

namespace asio = boost::asio;

namespace {

constexpr std::size_t pieceBytes = 16 * 1024;

// The kernel's part of what a client has not read yet; it takes twice this. With the usual buffer, ten times as large,
// a crowd that does not read would hold that much of the machine's memory, beside all that is bounded here.
constexpr int sendBufferBytes = 32 * 1024;

// What a client may send while it reads a stream, which nobody looks at.
constexpr std::size_t unaskedBytes = 1024 * 1024;

// Whether the other end is closed, and not only done with sending (POLLHUP in poll(2)).
bool hungUp( HttpConnection::Socket & socket ) {
   pollfd end{ .fd = socket.native_handle(), .events = 0, .revents = 0 };
   return ::poll( &end, 1, 0 ) > 0;
}

// What comes before a chunk.
std::string chunkHead( std::size_t bytes ) {
   char digits[2 * sizeof bytes];
   auto const end = std::to_chars( std::begin( digits ), std::end( digits ), bytes, 16 ).ptr;
   return std::string( std::begin( digits ), end ) + "\r\n";
}

}  // namespace

void HttpConnection::stream( HttpAnswer answer ) {
   stream_ = std::move( answer.stream );
   --( shared_.get()->*count_ );
   count_ = &Shared::streams;
   ++shared_->streams;
   shared_->streaming.insert( this );
   Error ignored;
   socket_.set_option( asio::socket_base::send_buffer_size( sendBufferBytes ), ignored );
   // Weak, as the stream is this connection's own.
   stream_->onMore( [weak = weak_from_this()] {
      if( auto const self = weak.lock() ) self->queueUp();
   } );
   awaitPeerEnd( unaskedBytes );
   sendPiece( std::move( answer.body ), false );
}

void HttpConnection::awaitPeerEnd( std::size_t bytesLeft ) {
   auto const room = reader_.scratch();
   socket_.async_read_some( asio::buffer( room.data(), room.size() ),
                            [self = shared_from_this(), bytesLeft]( Error error, std::size_t bytes ) {
                               if( !error && bytes < bytesLeft ) return self->awaitPeerEnd( bytesLeft - bytes );
                               self->onPeerEnd( error );
                            } );
}

void HttpConnection::onPeerEnd( Error error ) {
   // One that has only said that it asks no more goes on reading, until it hangs up.
   bool const reads = error == asio::error::eof && stream_ && !hungUp( socket_ );
   if( !reads ) return leaveStream();
   socket_.async_wait( Socket::wait_error, [self = shared_from_this()]( Error waiting ) {
      self->onPeerEnd( waiting ? waiting : Error( asio::error::eof ) );
   } );
}

void HttpConnection::queueUp() {
   if( queued_ || sending_ ) return;
   queued_ = true;
   shared_->due.push_back( weak_from_this() );
   if( shared_->due.size() == 1 ) sendNextOf( shared_ );
}

void HttpConnection::sendNextOf( std::shared_ptr<Shared> const & shared ) {
   asio::post( shared->loop.io(), [shared] {
      auto const next = shared->due.front().lock();
      shared->due.pop_front();
      if( !shared->due.empty() ) sendNextOf( shared );
      if( !next ) return;
      next->queued_ = false;
      next->goOnStreaming();
   } );
}

void HttpConnection::goOnStreaming() {
   if( sending_ || !stream_ ) return;
   std::string piece;
   bool last = false;
   std::optional<std::string> trouble;
   shared_->loop.turn( [&] {
      trouble = guarded( [&] {
         piece = stream_->next( pieceBytes );
         last = stream_->ended() || ( stopping_ && piece.empty() );
      } );
   } );
   if( trouble ) {
      logLine( Service::Severity::error, "a stream ends: " + *trouble );
      return leaveStream();
   }
   if( !piece.empty() || last ) return sendPiece( std::move( piece ), last );
   // It may take as long as it likes to come about.
   deadline_.cancel();
}

void HttpConnection::sendPiece( std::string piece, bool last ) {
   // A chunk of no bytes is the last one.
   bool const chunks = reader_.takesChunks();
   if( chunks && !piece.empty() ) head_ += chunkHead( piece.size() );
   std::string_view tail = chunks && !piece.empty() ? "\r\n" : "";
   if( chunks && last ) tail = piece.empty() ? "0\r\n\r\n" : "\r\n0\r\n\r\n";
   body_ = std::move( piece );
   shared_->unreadBytes += body_.size();
   deadlineIs( shared_->limits.answer );
   sending_ = true;
   std::array<asio::const_buffer, 3> const message{ asio::buffer( head_ ), asio::buffer( body_ ),
                                                    asio::buffer( tail ) };
   // A client that takes something, however little, is there.
   auto const whileItTakes = [self = this, taken = std::size_t( 0 )]( Error error, std::size_t bytes ) mutable {
      if( std::exchange( taken, bytes ) < bytes ) self->deadlineIs( self->shared_->limits.answer );
      return asio::transfer_all()( error, bytes );
   };
   asio::async_write( socket_, message, whileItTakes, [self = shared_from_this(), last]( Error error, std::size_t ) {
      self->onPieceSent( error, last );
   } );
}

void HttpConnection::onPieceSent( Error error, bool last ) {
   sending_ = false;
   shared_->unreadBytes -= body_.size();
   // Not clear(), which keeps the memory.
   head_ = body_ = std::string();
   if( error ) return leaveStream();
   if( !last ) return queueUp();
   nothingMoreToStream();
   socket_.shutdown( Socket::shutdown_send, error );
   // It is still waited for the client's end, but not for ever.
   deadlineIs( shared_->limits.parting );
}

void HttpConnection::stopStream() {
   if( !stream_ ) return;
   stopping_ = true;
   stream_->stop();
   goOnStreaming();
}

void HttpConnection::leaveStream() {
   Error ignored;
   socket_.close( ignored );
   deadline_.cancel();
   nothingMoreToStream();
}

void HttpConnection::nothingMoreToStream() {
   stream_.reset();
   bool const wasLast = shared_->streaming.erase( this ) > 0 && shared_->streaming.empty();
   if( auto const allSent = wasLast ? std::exchange( shared_->allSent, {} ) : std::function<void()>() ) allSent();
}

}  // namespace Host
