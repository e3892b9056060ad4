#include "http/Http.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/write.hpp>
#include <sstream>

#include "kel/Json.h"

namespace Host {

namespace http = boost::beast::http;

namespace {

// RFC 9110, section 5.6.7. The names are English, as nobody changes the locale of this process.
std::string dateText( std::time_t time ) {
   std::tm parts{};
   ::gmtime_r( &time, &parts );
   char text[40];
   return { text, std::strftime( text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts ) };
}

}  // namespace

HttpAnswer httpError( unsigned status, std::string text ) {
   std::string const outcome = Kel::toJson( std::string_view( text ) );
   Kel::Value const body = Kel::value( Kel::Value::Object{ { "error", Kel::value( std::move( text ) ) } } );
   return { .status = status, .body = Kel::toJson( body ) + "\n", .outcome = outcome };
}

HttpAnswer httpLines( std::shared_ptr<HttpStream> stream ) {
   return { .body = "", .contentType = streamType, .stream = std::move( stream ) };
}

std::string httpHead( HttpAnswer const & answer, bool keepAlive, std::time_t now, bool chunks ) {
   http::response<http::empty_body> message( http::int_to_status( answer.status ), 11 );
   message.set( http::field::date, dateText( now ) );
   if( !answer.allow.empty() ) message.set( http::field::allow, answer.allow );
   if( !answer.body.empty() || answer.stream ) message.set( http::field::content_type, answer.contentType );
   for( auto const & [name, text] : answer.fields ) message.set( name, text );
   if( !answer.stream ) {
      message.content_length( answer.body.size() );
   } else if( chunks ) {
      message.chunked( true );
   }
   // Said either way: a client of HTTP/1.0 takes silence for the end.
   message.set( http::field::connection, keepAlive ? "keep-alive" : "close" );
   std::ostringstream text;
   text << message.base();
   return std::move( text ).str();
}

}  // namespace Host
