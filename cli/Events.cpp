#include "Events.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <boost/json/parse.hpp>
#include <cmath>
#include <csignal>
#include <ctime>
#include <iostream>

#include "Commands.h"
#include "client/LineStream.h"
#include "tables/Members.h"
#include "tables/Printable.h"

namespace Cli {

namespace {

// While nobody is there to connect to.
constexpr int pauseMilliseconds = 500;

// SIGINT and SIGTERM, which from here on only tell that they came.
class Interrupts {
 public:
   Interrupts() {
      sigset_t all;
      sigemptyset( &all );
      sigaddset( &all, SIGINT );
      sigaddset( &all, SIGTERM );
      sigprocmask( SIG_BLOCK, &all, &before_ );
      fd_ = signalfd( -1, &all, SFD_CLOEXEC );
   }
   ~Interrupts() {
      ::close( fd_ );
      sigprocmask( SIG_SETMASK, &before_, nullptr );
   }
   Interrupts( Interrupts const & ) = delete;
   Interrupts & operator=( Interrupts const & ) = delete;

   // Until one has come, which it says, or `fd` can be read, or the time is over; -1 stands for no descriptor, and for
   // no end of the time.
   [[nodiscard]] bool come( int fd, int milliseconds ) const {
      std::array<pollfd, 2> ready{ pollfd{ fd_, POLLIN, 0 }, pollfd{ fd, POLLIN, 0 } };
      ::poll( ready.data(), ready.size(), milliseconds );
      // Taken, or it would end this program as soon as it is not blocked any more.
      signalfd_siginfo taken{};
      return ready[0].revents != 0 && ::read( fd_, &taken, sizeof taken ) > 0;
   }

 private:
   sigset_t before_{};
   int fd_ = -1;
};

std::string localTime( Object const & event ) {
   double const wall = number( event, "wallTime" ).value_or( NAN );
   // Beyond every calendar.
   if( !( std::abs( wall ) < 1e12 ) ) return "-";
   auto const seconds = static_cast<time_t>( std::floor( wall ) );
   tm parts{};
   localtime_r( &seconds, &parts );
   std::array<char, 64> day{};
   std::strftime( day.data(), day.size(), "%Y-%m-%d %H:%M:%S", &parts );
   return day.data();
}

// "2026-03-01 12:00:05 WARNING fabric: eth0: spike: out 4 Mbps"
void printEvent( Object const & event ) {
   std::cout << localTime( event ) << " ";
   std::string const severity = text( event, "severity" );
   if( severity == "error" ) std::cout << "ERROR ";
   if( severity == "warning" ) std::cout << "WARNING ";
   for( char const * member : { "unit", "interface", "kind" } ) {
      std::string const name = text( event, member );
      if( !name.empty() ) std::cout << name << ": ";
   }
   std::cout << text( event, "text" ) << "\n";
}

class Events {
 public:
   Events( Client const & client, EventsOptions const & options )
      : client_( client ), options_( options ), after_( options.after ) {}

   int follow() {
      while( true ) {
         try {
            LineStream stream = client_.lines( target() );
            unsigned const status = stream.answer().status;
            // Those that follow may be too many for a moment, when all of them come back at once.
            bool const later = begun_ && status == 503;
            if( status == 410 ) {
               goOnWithOldest( stream.answer() );
            } else if( !stream.answer().ok() && !later ) {
               return complain( stream.answer() );
            } else if( !later && print( stream ) ) {
               return done;
            }
         } catch( NotReached const & error ) {
            if( !begun_ ) throw;
            if( !std::exchange( away_, true ) )
               complain( std::string( error.what() ) + "; waiting for it to answer again" );
         }
         std::cout.flush();
         if( interrupts_.come( -1, std::exchange( atOnce_, false ) ? 0 : pauseMilliseconds ) ) return done;
      }
   }

 private:
   [[nodiscard]] Target target() const {
      Target target{ "events" };
      // Of a history that is another by now all is news: of a number that is none of it, maintd says which are.
      if( after_ || begun_ ) target.parameter( "after", std::to_string( after_.value_or( 0 ) ) );
      if( !options_.unit.empty() ) target.parameter( "unit", options_.unit );
      return target;
   }

   void goOnWithOldest( Answer const & answer ) {
      // When it was stopped in order, everything it said had been read.
      if( !stopped_ ) complain( answer.error() + "; it goes on with that" );
      auto const oldest = numberOf( answer.object(), "oldest" );
      if( !oldest || *oldest == 0 ) throw WrongAnswer( "it says of no event that it is the oldest" );
      after_ = *oldest - 1;
      atOnce_ = !std::exchange( gone_, true );
   }

   // Until the stream ends; true when the caller wants no more.
   bool print( LineStream & stream ) {
      if( std::exchange( away_, false ) ) complain( "maintd answers again" );
      begun_ = true;
      stopped_ = false;
      gone_ = false;
      std::string line;
      for( unsigned lines = 0;; ++lines ) {
         LineStream::Got const got = stream.next( line, Clock::now() );
         if( got == LineStream::Got::end ) break;
         if( got == LineStream::Got::line ) handleLine( line );
         bool const idle = got == LineStream::Got::nothing;
         if( idle ) std::cout.flush();
         // Now and then also where it never stops.
         if( ( idle || lines % 256 == 0 ) && interrupts_.come( stream.fd(), idle ? -1 : 0 ) ) return true;
      }
      if( !atOnce_ && !std::exchange( away_, true ) )
         complain( "maintd has ended; waiting for it to be started again" );
      return false;
   }

   void handleLine( std::string const & line ) {
      boost::system::error_code error;
      auto const json = boost::json::parse( line, error );
      if( error || !json.is_object() ) throw WrongAnswer( "a line is no JSON object" );
      Object const & object = json.get_object();
      std::string const end = text( object, "end" );
      if( auto const seq = numberOf( object, end.empty() ? "seq" : "resumeAfter" ) ) after_ = seq;
      if( options_.json ) std::cout << line << "\n";
      if( end.empty() ) {
         if( !options_.json ) printEvent( object );
         return;
      }
      stopped_ = end == "stopping";
      atOnce_ = !stopped_;
      if( atOnce_ ) complain( "maintd has cut this off, as it was read too slowly; going on where it was" );
   }

   [[nodiscard]] static std::optional<uint64_t> numberOf( Object const & object, char const * member ) {
      auto const * const found = object.if_contains( member );
      boost::system::error_code error;
      auto const number = found ? found->to_number<uint64_t>( error ) : 0;
      return !found || error ? std::nullopt : std::optional( number );
   }

   Client const & client_;
   EventsOptions const & options_;
   Interrupts const interrupts_;
   std::optional<uint64_t> after_;
   bool begun_ = false;    // it has been reached once
   bool away_ = false;     // and is not now, which has been said
   bool stopped_ = false;  // in order
   bool gone_ = false;     // what was asked for, from the history
   bool atOnce_ = false;   // it is there, and is to be asked again
};

}  // namespace

int events( Client const & client, EventsOptions const & options ) { return Events( client, options ).follow(); }

}  // namespace Cli
