#include "client/Client.h"

#include <boost/asio/io_context.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/parse.hpp>

#include "client/LineStream.h"
#include "client/Reach.h"
#include "tables/Members.h"

namespace Cli {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace json = boost::json;

namespace {

// What an answer may cost. All of it within `whole`, and within it never longer than `silence` without a byte.
struct Limits {
   std::chrono::seconds silence;
   std::chrono::seconds whole;
   std::size_t mebibytes;
};
constexpr Limits ordinary{ std::chrono::seconds( 10 ), std::chrono::seconds( 10 ), 16 };
// A dump is written in one go, but reading it is a matter of megabytes.
constexpr Limits large{ std::chrono::seconds( 10 ), std::chrono::seconds( 120 ), 256 };

// One request and its answer on a connection of its own.
class Exchange {
 public:
   using Request = http::request<http::empty_body>;
   using Response = http::response<http::string_body>;

   Exchange( std::string const & path, Daemon const & daemon, Limits const & limits,
             std::optional<Clock::time_point> deadline )
      : limits_( limits ),
        end_( Clock::now() + limits.whole ),
        deadline_( deadline ),
        stream_( connected( io_, path, bounded( end_ ), daemon ) ) {}

   // Throws boost::system::system_error.
   Response answerTo( Request const & request ) {
      // Whoever refuses a connection as such does not read the request before that.
      auto const unsent = step( [&]( auto const & then ) { http::async_write( stream_, request, then ); } );
      if( unsent && unsent != asio::error::broken_pipe ) throw boost::system::system_error( unsent );
      // An interim answer is not the one (RFC 9110, section 15.2). Each takes from the time of the whole.
      while( true ) {
         Response answer = next();
         bool const interim = answer.result_int() / 100 == 1 && answer.result() != http::status::switching_protocols;
         if( !interim ) return answer;
      }
   }

 private:
   // The answer must come before this, or the caller's deadline if that is earlier.
   [[nodiscard]] Clock::time_point bounded( Clock::time_point end ) const {
      return deadline_ ? std::min( end, *deadline_ ) : end;
   }

   Response next() {
      http::response_parser<http::string_body> parser;
      parser.body_limit( limits_.mebibytes * 1024 * 1024 );
      while( !parser.is_done() ) {
         auto const error =
            step( [&]( auto const & then ) { http::async_read_some( stream_, buffer_, parser, then ); } );
         if( error ) throw boost::system::system_error( error );
      }
      return parser.release();
   }

   // One operation to its end, which is at the latest when its time is over.
   template<class Start>
   [[nodiscard]] beast::error_code step( Start const & start ) {
      beast::error_code result;
      auto const now = Clock::now();
      auto const end = bounded( std::min( end_, now + limits_.silence ) );
      // The stream would not notice for as long as there is always something to read.
      if( now >= end ) return beast::error::timeout;
      stream_.expires_at( end );
      start( [&]( beast::error_code error, std::size_t ) { result = error; } );
      io_.restart();
      io_.run();
      return result;
   }

   Limits const limits_;
   Clock::time_point const end_;
   std::optional<Clock::time_point> const deadline_;
   asio::io_context io_;
   beast::basic_stream<asio::local::stream_protocol> stream_;
   // Room for the header and for the line before a chunk; a body goes on into the answer.
   beast::flat_buffer buffer_{ 64 * 1024 };
};

// Takes JSON and keeps nothing of it: what is large is only looked at for being JSON.
struct Unkept {
   static constexpr std::size_t max_object_size = std::size_t( -1 );
   static constexpr std::size_t max_array_size = std::size_t( -1 );
   static constexpr std::size_t max_key_size = std::size_t( -1 );
   static constexpr std::size_t max_string_size = std::size_t( -1 );
   using Error = boost::system::error_code;
   using Text = json::string_view;
   bool on_document_begin( Error & ) { return true; }
   bool on_document_end( Error & ) { return true; }
   bool on_object_begin( Error & ) { return true; }
   bool on_object_end( std::size_t, Error & ) { return true; }
   bool on_array_begin( Error & ) { return true; }
   bool on_array_end( std::size_t, Error & ) { return true; }
   bool on_key_part( Text, std::size_t, Error & ) { return true; }
   bool on_key( Text, std::size_t, Error & ) { return true; }
   bool on_string_part( Text, std::size_t, Error & ) { return true; }
   bool on_string( Text, std::size_t, Error & ) { return true; }
   bool on_number_part( Text, Error & ) { return true; }
   bool on_int64( int64_t, Text, Error & ) { return true; }
   bool on_uint64( uint64_t, Text, Error & ) { return true; }
   bool on_double( double, Text, Error & ) { return true; }
   bool on_bool( bool, Error & ) { return true; }
   bool on_null( Error & ) { return true; }
   bool on_comment_part( Text, Error & ) { return true; }
   bool on_comment( Text, Error & ) { return true; }
};

bool isJson( std::string const & text ) {
   json::basic_parser<Unkept> parser( json::parse_options{} );
   json::error_code error;
   std::size_t const read = parser.write_some( false, text.data(), text.size(), error );
   return !error && text.find_first_not_of( " \t\r\n", read ) == std::string::npos;
}

// What was asked for.
struct Asked {
   std::string_view mediaType = "application/json";
   Shape const * shape = nullptr;  // null: JSON of any kind, or none
};

bool isOfType( http::fields const & header, std::string_view mediaType ) {
   std::string_view given = header[http::field::content_type];
   // Parameters behind it change nothing in what is asked for here (RFC 9110, section 8.3.1).
   given = given.substr( 0, given.find( ';' ) );
   given = given.substr( 0, given.find_last_not_of( " \t" ) + 1 );
   return beast::iequals( given, mediaType );
}

// What is wrong with the answer; empty when it is the one that was asked for, which has then been read.
std::string readFault( Answer & answer, http::fields const & header, Asked const & asked ) {
   Asked const expected = answer.ok() ? asked : Asked{ .shape = &errorShape };
   if( !isOfType( header, expected.mediaType ) ) {
      std::string const given( header[http::field::content_type] );
      return "status " + std::to_string( answer.status ) + " with " + ( given.empty() ? "no content type" : given ) +
             " in place of " + std::string( expected.mediaType );
   }
   if( !expected.shape ) {
      bool const broken = expected.mediaType == Asked().mediaType && !isJson( answer.text );
      return broken ? "what it says to be JSON is none" : "";
   }
   json::error_code error;
   answer.body = json::parse( answer.text, error );
   if( error ) return "what it says to be JSON is none: " + error.message();
   return shapeFault( answer.body, *expected.shape );
}

std::string why( boost::system::error_code const & error, Limits const & limits ) {
   if( error == beast::error::timeout )
      return "nothing, or not all of it, came in " + std::to_string( limits.silence.count() ) + " s";
   if( error == http::error::body_limit )
      return "the answer is larger than " + std::to_string( limits.mebibytes ) + " MiB";
   return error.message();
}

// A request that changes something is not undone by nobody's waiting for its answer.
std::string mayStillHappen( http::verb method ) {
   return method == http::verb::post ? "; it may have been carried out, or may still be" : "";
}

Answer exchange( std::string const & path, Daemon const & daemon, http::verb method, Target const & target,
                 Asked const & asked, Limits const & limits, std::optional<Clock::time_point> deadline ) {
   auto const passed = [&] { return deadline && Clock::now() >= *deadline; };
   std::string const what = std::string( http::to_string( method ) ) + " " + target.text();
   Exchange::Request request( method, target.text(), 11 );
   // Required of every request (RFC 9112, section 3.2), though nobody looks at it on a unix socket.
   request.set( http::field::host, "localhost" );
   // So that the daemon does not keep the connection for a request that will not come.
   request.set( http::field::connection, "close" );
   request.prepare_payload();
   std::optional<Exchange::Response> response;
   try {
      response = Exchange( path, daemon, limits, deadline ).answerTo( request );
   } catch( boost::system::system_error const & error ) {
      std::string const text = what + mayStillHappen( method );
      if( passed() ) throw DeadlinePassed( daemon.name + " has not answered in time: " + text );
      throw NotReached( daemon.name + " at " + path + " did not answer: " + why( error.code(), limits ) + ": " + text );
   } catch( NotReached const & ) {
      // Not even connected, so nothing was sent.
      if( passed() ) throw DeadlinePassed( daemon.name + " has not taken the connection in time: " + what );
      throw;
   }
   Answer answer{ response->result_int(), std::move( response->body() ), {} };
   std::string const fault = readFault( answer, *response, asked );
   if( fault.empty() ) return answer;
   throw NotReached( "what answers at " + path + " is no " + daemon.name + ", or one of another version: " + what +
                     ": " + fault );
}

}  // namespace

std::string Answer::error() const { return Cli::text( body.get_object(), "error" ); }

Client Client::until( std::optional<Clock::time_point> deadline ) const {
   Client copy = *this;
   copy.deadline_ = deadline;
   return copy;
}

Answer Client::get( Target const & target, Shape const & asked ) const {
   return exchange( readPath_, daemon_, http::verb::get, target, { .shape = &asked }, ordinary, deadline_ );
}

Answer Client::post( Target const & target, Shape const & asked ) const {
   return exchange( controlPath_, daemon_, http::verb::post, target, { .shape = &asked }, ordinary, deadline_ );
}

Answer Client::getLarge( Target const & target, std::string_view mediaType ) const {
   return exchange( readPath_, daemon_, http::verb::get, target, { .mediaType = mediaType }, large, deadline_ );
}

LineStream Client::lines( Target const & target ) const {
   auto const end = Clock::now() + ordinary.silence;
   return LineStream( readPath_, target, deadline_ ? std::min( end, *deadline_ ) : end );
}

}  // namespace Cli
