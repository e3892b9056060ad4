#include "Client.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/parse.hpp>
#include <cctype>

namespace Cli {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using Socket = asio::local::stream_protocol::socket;

namespace {

constexpr time_t answerTimeoutSeconds = 30;

// Connects to the daemon. Throws NotReached.
Socket connected( asio::io_context & io, std::string const & path ) {
   Socket socket( io );
   boost::system::error_code error;
   socket.connect( asio::local::stream_protocol::endpoint( path ), error );
   if( error ) throw NotReached( "maintd is not reached at " + path + ": " + error.message() );
   timeval const timeout{ .tv_sec = answerTimeoutSeconds, .tv_usec = 0 };
   setsockopt( socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout );
   return socket;
}

}  // namespace

std::string Answer::error() const {
   auto const * const object = body.if_object();
   // The daemon always gives one; what else may listen there need not.
   auto const * const reason = object ? object->if_contains( "error" ) : nullptr;
   return reason && reason->is_string() ? reason->get_string().c_str()
                                        : "maintd answered with status " + std::to_string( status );
}

Answer Client::get( std::string const & target ) const { return request( "GET", target ); }
Answer Client::post( std::string const & target ) const { return request( "POST", target ); }

Answer Client::request( char const * method, std::string const & target ) const {
   asio::io_context io;
   Socket socket = connected( io, socketPath_ );
   http::request<http::empty_body> request( http::string_to_verb( method ), target, 11 );
   // Required of every request (RFC 9112, section 3.2), though nobody looks at it on a unix socket.
   request.set( http::field::host, "maintd" );
   // So that maintd does not keep the connection for a request that will not come.
   request.set( http::field::connection, "close" );
   request.prepare_payload();
   try {
      http::write( socket, request );
      boost::beast::flat_buffer buffer;
      http::response_parser<http::string_body> parser;
      // Beast's own limit for an answer is 8 MiB; a dump grows with the box.
      parser.body_limit( boost::none );
      http::read( socket, buffer, parser );
      auto const & response = parser.get();
      // Not by trial: a dump is text, whatever it looks like.
      bool const isJson = response[http::field::content_type] == "application/json";
      return { response.result_int(), response.body(),
               isJson ? boost::json::parse( response.body() ) : boost::json::value() };
   } catch( boost::system::system_error const & error ) {
      // Broken JSON comes here, too. To the caller all of these are one case: there is no maintd to talk to.
      throw NotReached( "maintd at " + socketPath_ + " did not answer " + method + " " + target + ": " + error.what() );
   }
}

std::string encoded( std::string const & component ) {
   static char const hex[] = "0123456789ABCDEF";
   std::string out;
   for( char const c : component ) {
      auto const byte = static_cast<unsigned char>( c );
      // The unreserved characters (RFC 3986, section 2.3); nobody changes the locale of this program, so a letter is
      // one of ASCII. Unsigned, as isalnum() takes no negative number.
      if( std::isalnum( byte ) || c == '-' || c == '.' || c == '_' || c == '~' ) {
         out += c;
      } else {
         ( ( out += '%' ) += hex[byte >> 4] ) += hex[byte & 15];
      }
   }
   return out;
}

}  // namespace Cli
