#include "client/LineStream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/parse.hpp>
#include <cerrno>
#include <cstring>

#include "client/Reach.h"

namespace Cli {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace {

constexpr char const * mediaType = "application/x-ndjson";
constexpr std::size_t pieceBytes = 64 * 1024;

// Until then, for poll(2): rounded up, so that nobody looks again and again at a time that is not quite over.
int millisecondsTo( Clock::time_point until ) {
   auto const left = std::chrono::ceil<std::chrono::milliseconds>( until - Clock::now() ).count();
   return static_cast<int>( std::clamp<decltype( left )>( left, 0, 1'000'000'000 ) );
}

}  // namespace

class LineStream::Impl {
 public:
   Impl( std::string path, Target const & target, Clock::time_point end )
      : path_( std::move( path ) ), what_( "GET " + target.text() ), socket_( connected( io_, path_, end ) ) {
      parser_.body_limit( boost::none );
      parser_.eager( true );
      ask( target );
      auto const cameBy = [&]( auto const & came ) {
         while( !came() ) {
            if( !receive( end ) && Clock::now() >= end ) throw notReached( "nothing, or not all of it, came in time" );
         }
      };
      cameBy( [&] { return parser_.is_header_done(); } );
      answer_.status = parser_.get().result_int();
      if( answer_.ok() ) {
         checkType();
      } else {
         cameBy( [&] { return parser_.is_done(); } );
         readRefusal();
      }
   }

   [[nodiscard]] Answer const & answer() const { return answer_; }
   [[nodiscard]] int fd() { return socket_.native_handle(); }

   [[nodiscard]] Got next( std::string & line, Clock::time_point until ) {
      while( !takeLine( line ) ) {
         if( parser_.is_done() ) return Got::end;
         if( lines_.size() > lineMax ) throw notReached( "a line is longer than may be" );
         if( !receive( until ) ) return Got::nothing;
      }
      return Got::line;
   }

 private:
   [[nodiscard]] NotReached notReached( std::string const & why ) const {
      return NotReached( "maintd at " + path_ + " did not answer: " + why + ": " + what_ );
   }
   [[nodiscard]] NotReached noMaintd( std::string const & why ) const {
      return NotReached( "what answers at " + path_ + " is no maintd, or one of another version: " + what_ + ": " +
                         why );
   }

   void ask( Target const & target ) {
      http::request<http::empty_body> request( http::verb::get, target.text(), 11 );
      request.set( http::field::host, "maintd" );
      request.set( http::field::connection, "close" );
      beast::error_code error;
      http::write( socket_, request, error );
      // Whoever refuses a connection as such does not read the request before that.
      if( error && error != asio::error::broken_pipe ) throw notReached( error.message() );
   }

   void checkType() const {
      std::string_view const type = parser_.get()[http::field::content_type];
      if( type != mediaType ) throw noMaintd( "its answer is not made of lines" );
   }

   void readRefusal() {
      answer_.text = lines_;
      beast::error_code error;
      answer_.body = boost::json::parse( answer_.text, error );
      std::string const fault = error ? "what it says to be JSON is none" : shapeFault( answer_.body, errorShape );
      if( !fault.empty() ) throw noMaintd( "status " + std::to_string( answer_.status ) + ": " + fault );
   }

   bool takeLine( std::string & line ) {
      std::size_t const end = lines_.find( '\n', scanned_ );
      scanned_ = std::min( end, lines_.size() );
      if( end == std::string::npos ) {
         // What was taken goes only now, so that many short lines cost no more than a long one.
         lines_.erase( 0, taken_ );
         scanned_ -= std::exchange( taken_, 0 );
         return false;
      }
      line.assign( lines_, taken_, end - taken_ );
      taken_ = scanned_ = end + 1;
      return true;
   }

   // Takes in what comes next; false when nothing does until then.
   bool receive( Clock::time_point until ) {
      pollfd ready{ fd(), POLLIN, 0 };
      if( ::poll( &ready, 1, millisecondsTo( until ) ) <= 0 ) return false;
      std::array<char, pieceBytes> piece;
      ssize_t const bytes = ::recv( fd(), piece.data(), piece.size(), MSG_DONTWAIT );
      if( bytes < 0 && ( errno == EAGAIN || errno == EINTR ) ) return false;
      if( bytes < 0 ) throw notReached( std::strerror( errno ) );
      beast::error_code error;
      if( bytes == 0 ) {
         parser_.put_eof( error );
      } else {
         received_.append( piece.data(), static_cast<std::size_t>( bytes ) );
         parse( error );
      }
      if( error ) throw notReached( error == http::error::partial_message ? "it has broken off" : error.message() );
      return true;
   }

   void parse( beast::error_code & error ) {
      while( !received_.empty() && !parser_.is_done() ) {
         std::size_t const used = parser_.put( asio::buffer( received_ ), error );
         received_.erase( 0, used );
         lines_ += std::exchange( parser_.get().body(), {} );
         if( error || used == 0 ) break;
      }
      if( error == http::error::need_more ) error = {};
   }

   std::string const path_;
   std::string const what_;
   asio::io_context io_;
   Socket socket_;
   http::response_parser<http::string_body> parser_;
   Answer answer_;
   std::string received_;     // and not parsed yet
   std::string lines_;        // the body, from the last look on
   std::size_t taken_ = 0;    // of it
   std::size_t scanned_ = 0;  // no line ends between what was taken and here
};

LineStream::LineStream( std::string const & socketPath, Target const & target, Clock::time_point end )
   : impl_( std::make_unique<Impl>( socketPath, target, end ) ) {}
LineStream::~LineStream() = default;
LineStream::LineStream( LineStream && ) noexcept = default;
LineStream & LineStream::operator=( LineStream && ) noexcept = default;

Answer const & LineStream::answer() const { return impl_->answer(); }
int LineStream::fd() const { return impl_->fd(); }
LineStream::Got LineStream::next( std::string & line, Clock::time_point until ) { return impl_->next( line, until ); }

}  // namespace Cli
