#include "http/RequestReader.h"

#include <algorithm>
#include <cctype>

#include "http/Target.h"

namespace Host {

namespace beast = boost::beast;
namespace http = beast::http;

namespace {

bool isDigit( char c ) { return c >= '0' && c <= '9'; }

}  // namespace

void RequestReader::begin() {
   parser_.emplace();
   parser_->header_limit( headMax );
   parser_->body_limit( bodyMax );
   headBytes_ = 0;
   lineSeen_ = headSeen_ = continueDue_ = headOnly_ = keepAlive_ = takesChunks_ = false;
   state_ = State::idle;
}

std::span<char> RequestReader::room() {
   std::copy( buffer_.data() + begin_, buffer_.data() + end_, buffer_.data() );
   end_ -= std::exchange( begin_, 0 );
   // As the parser takes the head field by field, room for more of it is not the room in the buffer.
   std::size_t const full = headSeen_ ? buffer_.size() : buffer_.size() - headBytes_;
   return { buffer_.data() + end_, full - end_ };
}

void RequestReader::received( std::size_t bytes ) {
   end_ += bytes;
   parse();
}

void RequestReader::ended() {
   if( state_ == State::reading ) refuse( 400, "the request breaks off" );
}

void RequestReader::late() {
   if( state_ == State::reading ) refuse( 408, "the request did not come in time" );
}

void RequestReader::next() {
   begin();
   parse();
}

void RequestReader::parse() {
   // Empty lines before a request come from old clients (RFC 9112, section 2.2).
   while( state_ == State::idle && unread().starts_with( "\r\n" ) ) begin_ += 2;
   if( state_ == State::idle && !unread().empty() && unread() != "\r" ) state_ = State::reading;
   while( state_ == State::reading && !unread().empty() ) {
      if( !lineSeen_ && !lineHolds() ) return;
      beast::error_code error;
      std::size_t const taken = parser_->put( boost::asio::buffer( unread() ), error );
      begin_ += taken;
      if( !headSeen_ ) headBytes_ += taken;
      if( error == http::error::need_more ) return refuseIfFull();
      if( error ) return refuseError( error );
      if( !headSeen_ && parser_->is_header_done() ) checkHead();
      if( state_ == State::reading && parser_->is_done() ) state_ = State::complete;
   }
}

bool RequestReader::lineHolds() {
   std::size_t const end = unread().find( "\n" );
   if( end == std::string_view::npos ) {
      refuseIfFull();
      return false;
   }
   lineSeen_ = true;
   std::string_view line = unread().substr( 0, end );
   if( line.ends_with( '\r' ) ) line.remove_suffix( 1 );
   std::string_view const version = line.substr( line.size() - std::min<std::size_t>( line.size(), 8 ) );
   if( version.size() < 8 || !version.starts_with( "HTTP/" ) || !isDigit( version[5] ) || version[6] != '.' ||
       !isDigit( version[7] ) )
      return true;  // the parser says what is wrong with it
   if( version[5] != '1' ) return refuse( 505, "only HTTP/1.1 is spoken here, not " + std::string( version ) );
   // A later minor version is to be read as the latest that is known (RFC 9110, section 2.5), which the parser refuses.
   if( version[7] > '1' ) buffer_[begin_ + line.size() - 1] = '1';
   return true;
}

void RequestReader::refuseIfFull() {
   if( !room().empty() ) return;
   if( headSeen_ ) {
      refuse( 400, "the body has a chunk size or a trailer that is too long" );
   } else if( lineSeen_ ) {
      refuse( 431, "the head of a request may have " + std::to_string( headMax ) + " bytes" );
   } else if( unread().find( ' ' ) != std::string_view::npos ) {
      refuse( 414, "the head of a request, and so its target, may have " + std::to_string( headMax ) + " bytes" );
   } else {
      refuse( 501, "there is no method as long as that" );
   }
}

void RequestReader::refuseError( beast::error_code error ) {
   if( error == http::error::body_limit ) {
      refuse( 413, "a body may have " + std::to_string( bodyMax ) + " bytes" );
   } else if( error == http::error::header_limit ) {
      refuse( 431, "the head of a request may have " + std::to_string( headMax ) + " bytes" );
   } else {
      refuse( 400, "not HTTP/1.1: " + error.message() );
   }
}

void RequestReader::checkHead() {
   headSeen_ = true;
   auto const & head = parser_->get();
   headOnly_ = head.method() == http::verb::head;
   keepAlive_ = head.keep_alive();
   takesChunks_ = head.version() >= 11;
   request_ = { headOnly_ ? "GET" : std::string( head.method_string() ), "", "" };
   auto const authorization = head[http::field::authorization];
   request_.hasBody = parser_->chunked() || parser_->content_length().value_or( 0 ) > 0;
   request_.authorization.assign( authorization.data(), authorization.size() );
   if( head.method() == http::verb::unknown || head.method() == http::verb::connect ) {
      refuse( 501, "there is no method " + request_.method + " here" );
      return;
   }
   if( !hostHolds() || !targetHolds() || !codingHolds() || !expectationHolds() ) return;
   // A body that is on its way needs no leave.
   continueDue_ = continueDue_ && !parser_->is_done() && unread().empty();
}

bool RequestReader::hostHolds() {
   auto const & head = parser_->get();
   auto const hosts = head.count( http::field::host );
   // HTTP/1.0 knew no such field.
   if( hosts > 1 || ( hosts == 0 && head.version() == 11 ) ) return refuse( 400, "a request has one Host field" );
   std::string_view const host( head[http::field::host].data(), head[http::field::host].size() );
   return validHost( host ) || refuse( 400, "the Host field names no host" );
}

bool RequestReader::targetHolds() {
   auto const target = parser_->get().target();
   auto const path = pathAndQuery( request_.method, { target.data(), target.size() } );
   if( !path ) return refuse( 400, "the request's target is malformed or not properly percent-encoded" );
   request_.target = *path;
   return true;
}

// Where the body ends is to be beyond doubt (RFC 9112, section 6.1): what one takes for a body, the next in the chain
// might take for a request.
bool RequestReader::codingHolds() {
   auto const & head = parser_->get();
   auto const codings = head.count( http::field::transfer_encoding );
   if( codings == 0 ) return true;
   if( head.version() < 11 || !parser_->chunked() )
      return refuse( 400, "a body with a Transfer-Encoding is chunked at last, and not in HTTP/1.0" );
   bool const only = codings == 1 && beast::iequals( head[http::field::transfer_encoding], "chunked" );
   return only || refuse( 501, "no Transfer-Encoding but chunked is understood" );
}

bool RequestReader::expectationHolds() {
   auto const & head = parser_->get();
   auto const expected = head[http::field::expect];
   if( head.version() < 11 || expected.empty() ) return true;
   continueDue_ = beast::iequals( expected, "100-continue" );
   return continueDue_ || refuse( 417, "no expectation but 100-continue is understood" );
}

bool RequestReader::refuse( unsigned status, std::string const & why ) {
   state_ = State::refused;
   refusal_ = httpError( status, why );
   return false;
}

}  // namespace Host
