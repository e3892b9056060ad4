#include "WatchSource.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "Commands.h"
#include "tables/Printable.h"
#include "watch/Series.h"
#include "watch/Story.h"

namespace Cli {

namespace json = boost::json;

using Watch::News;
using Watch::Question;

namespace {

// Between the two: JSON, each with its length before it.
using Length = uint64_t;

void sent( int fd, json::object const & message ) {
   std::string const text = json::serialize( message );
   Length const length = text.size();
   std::string const all = std::string( reinterpret_cast<char const *>( &length ), sizeof length ) + text;
   for( std::size_t done = 0; done < all.size(); ) {
      ssize_t const n = ::send( fd, all.data() + done, all.size() - done, MSG_NOSIGNAL );
      if( n < 0 && errno == EINTR ) continue;
      if( n < 0 ) throw std::runtime_error( std::string( "its other half has gone: " ) + std::strerror( errno ) );
      done += static_cast<std::size_t>( n );
   }
}

// Takes a message off the front; none while it is not whole.
std::optional<json::object> taken( std::string & received ) {
   Length length = 0;
   if( received.size() < sizeof length ) return std::nullopt;
   std::memcpy( &length, received.data(), sizeof length );
   if( received.size() - sizeof length < length ) return std::nullopt;
   json::value const message = json::parse( std::string_view( received ).substr( sizeof length, length ) );
   received.erase( 0, sizeof length + length );
   return message.as_object();
}

// What there is, at least something unless `flags` says otherwise; false when the other half has gone.
bool receive( int fd, std::string & received, int flags ) {
   std::array<char, 64 * 1024> piece{};
   ssize_t const n = ::recv( fd, piece.data(), piece.size(), flags );
   if( n > 0 ) received.append( piece.data(), static_cast<std::size_t>( n ) );
   return n > 0 || ( n < 0 && ( errno == EINTR || errno == EAGAIN ) );
}

Object message( Question const & question ) {
   return { { "what", static_cast<int>( question.what ) }, { "unit", question.unit }, { "intf", question.intf } };
}

Question questionOf( Object const & message ) {
   auto const text = [&]( char const * member ) { return std::string( message.at( member ).as_string() ); };
   return { static_cast<Question::What>( message.at( "what" ).to_number<int>() ), text( "unit" ), text( "intf" ) };
}

Object reduced( Question const & question, Object const & window ) {
   return question.what == Question::What::recent ? Watch::onlyRecent( window, Watch::Series::keptSeconds )
                                                  : Watch::onlyInterface( window, question.intf );
}

// In the child.
Object answerTo( Question const & question, Client const & client, std::string const & watched ) {
   Object news{ { "question", message( question ) } };
   try {
      bool const state = question.what == Question::What::state;
      Answer const answer =
         state ? stateOf( client, watched ) : client.get( { "windows", question.unit, "last" }, windowShape );
      if( !answer.ok() ) {
         news["trouble"] = printable( answer.error() );
      } else {
         news["answer"] = state ? answer.object() : reduced( question, answer.object() );
      }
   } catch( std::exception const & error ) {
      news["trouble"] = printable( error.what() );
   }
   return news;
}

[[noreturn]] void answerAll( int fd, Client const & client, std::string const & watched ) {
   // Whoever interrupts the view ends it, and that ends this.
   std::signal( SIGINT, SIG_IGN );
   try {
      for( std::string received; receive( fd, received, 0 ); ) {
         while( auto const asked = taken( received ) ) sent( fd, answerTo( questionOf( *asked ), client, watched ) );
      }
   } catch( std::exception const & ) {
      // Nobody is there any more who could be told.
   }
   ::_exit( done );
}

}  // namespace

Answer stateOf( Client const & client, std::string const & unit ) {
   return unit.empty() ? client.get( { "units" }, unitsShape ) : client.get( { "units", unit }, unitShape );
}

WatchSource::WatchSource( Client const & client, std::string const & unit ) {
   std::array<int, 2> ends{};
   if( ::socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data() ) != 0 || ( child_ = ::fork() ) < 0 )
      throw std::runtime_error( std::string( "the view cannot be started: " ) + std::strerror( errno ) );
   if( child_ == 0 ) {
      ::close( ends[0] );
      answerAll( ends[1], client, unit );
   }
   ::close( ends[1] );
   fd_ = ends[0];
}

WatchSource::~WatchSource() {
   // It may be waiting for maintd.
   ::kill( child_, SIGKILL );
   ::waitpid( child_, nullptr, 0 );
   ::close( fd_ );
}

void WatchSource::ask( Question const & question ) { sent( fd_, message( question ) ); }

std::optional<News> WatchSource::next() {
   if( !receive( fd_, received_, MSG_DONTWAIT ) ) throw std::runtime_error( "the view's other half has gone" );
   auto const message = taken( received_ );
   if( !message ) return std::nullopt;
   News news{ questionOf( message->at( "question" ).as_object() ), text( *message, "trouble" ), {} };
   if( auto const * const answer = inner( *message, "answer" ) ) news.answer = *answer;
   return news;
}

}  // namespace Cli
