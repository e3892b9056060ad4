#include "api/HttpServer.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

namespace Host {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Protocol = asio::local::stream_protocol;

namespace {

// No request needs a body. One that comes is read, up to this size, and not looked at.
constexpr std::size_t bodyMax = 64 * 1024;
// A client that went silent holds one of our descriptors no longer than that.
constexpr std::chrono::seconds idleMax( 60 );

// Who connected, as the kernel noted it then (SO_PEERCRED in unix(7)).
std::string userOf( Protocol::socket & socket ) {
   ucred peer{};
   socklen_t length = sizeof peer;
   if( ::getsockopt( socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &length ) != 0 ) return "unknown";
   passwd const * const entry = ::getpwuid( peer.uid );
   return entry ? entry->pw_name : std::to_string( peer.uid );
}

// One client's connection. The operation under way holds it; when none follows, it is gone and with it the socket.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
   Connection( Protocol::socket socket, AsioLoop & loop, HttpServer::Handler const & handler )
      : stream_( std::move( socket ) ), loop_( loop ), handler_( handler ) {}

   void read() {
      // A parser is good for one message. The buffer stays: a client need not wait for an answer before it sends its
      // next request (RFC 9112, section 9.3.2), whose beginning is then in there.
      parser_.emplace();
      parser_->body_limit( bodyMax );
      // One deadline for waiting, reading and the writing of the answer, which sets none of its own.
      stream_.expires_after( idleMax );
      http::async_read(
         stream_, buffer_, *parser_,
         [self = shared_from_this()]( beast::error_code error, std::size_t ) { self->onRead( error ); } );
   }

 private:
   void onRead( beast::error_code error ) {
      // The client has gone, was too slow or does not speak HTTP. None of them gets an answer.
      if( error ) return;
      auto const & request = parser_->get();
      HttpAnswer answer;
      HttpRequest asked{ std::string( request.method_string() ), std::string( request.target() ), "" };
      // Only where something changes: the user's name may come from a directory on the network, and a client that
      // follows an entry asks several times a second.
      if( request.method() != http::verb::get ) asked.user = userOf( stream_.socket() );
      // In a turn, so that the answer shows one moment, and what the request caused follows at once.
      loop_.turn( [&] { answer = handler_( asked ); } );
      response_ = {};
      response_.version( request.version() );
      response_.result( answer.status );
      response_.set( http::field::content_type, answer.contentType );
      response_.keep_alive( request.keep_alive() );
      response_.body() = std::move( answer.body );
      response_.prepare_payload();
      // From a member, which is still there when the last part is written.
      http::async_write( stream_, response_, [self = shared_from_this()]( beast::error_code e, std::size_t ) {
         if( !e && self->response_.keep_alive() ) self->read();
      } );
   }

   beast::basic_stream<Protocol> stream_;
   AsioLoop & loop_;
   HttpServer::Handler const & handler_;
   beast::flat_buffer buffer_;
   std::optional<http::request_parser<http::string_body>> parser_;
   http::response<http::string_body> response_;
};

// Whether somebody still answers on the socket file.
bool answered( asio::io_context & io, Protocol::endpoint const & endpoint ) {
   // The file of a process that died refuses the connection (connect(2)). Other failures count as nobody too: whether
   // the path can be had shows when it is bound.
   Protocol::socket probe( io );
   beast::error_code error;
   probe.connect( endpoint, error );
   return !error;
}

Protocol::acceptor listening( asio::io_context & io, std::string const & path ) {
   Protocol::endpoint const endpoint( path );
   if( answered( io, endpoint ) ) throw std::runtime_error( "another maintd answers at " + path );
   // A socket file outlives its process, and a path that exists cannot be bound (unix(7)).
   ::unlink( path.c_str() );
   try {
      // By the mask, so that the socket has mode 0660 from the first moment. With chmod() afterwards, whoever the
      // inherited mask lets in could connect in between.
      mode_t const before = ::umask( 0117 );
      Protocol::acceptor acceptor( io, endpoint );
      ::umask( before );
      return acceptor;
   } catch( boost::system::system_error const & error ) {
      throw std::runtime_error( "listening at " + path + ": " + error.code().message() );
   }
}

}  // namespace

HttpServer::HttpServer( AsioLoop & loop, std::string path, Handler handler )
   : loop_( loop ),
     path_( std::move( path ) ),
     handler_( std::move( handler ) ),
     acceptor_( listening( loop.io(), path_ ) ) {
   accept();
}

HttpServer::~HttpServer() { ::unlink( path_.c_str() ); }

void HttpServer::accept() {
   acceptor_.async_accept( [this]( beast::error_code error, Protocol::socket socket ) {
      // The acceptor is going.
      if( error == asio::error::operation_aborted ) return;
      // Other errors belong to one client, or to a want of descriptors that may pass: the next are accepted all the
      // same.
      if( !error ) std::make_shared<Connection>( std::move( socket ), loop_, handler_ )->read();
      accept();
   } );
}

}  // namespace Host
