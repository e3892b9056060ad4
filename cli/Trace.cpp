#include "Trace.h"

#include <array>
#include <boost/json/value_to.hpp>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <thread>

#include "Commands.h"
#include "brisklog/Follower.h"
#include "kel/Json.h"
#include "kel/ReadDuration.h"
#include "tables/Members.h"
#include "tables/Printable.h"

namespace Cli {

using Brisklog::Follower;
using Brisklog::Message;

namespace {

// Nothing tells of a message: maintd writes to memory and knows of no reader. A look that finds nothing new is cheap.
constexpr std::chrono::milliseconds ringPollInterval( 250 );

double secondsOf( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) * 1e-9;
}

// What turns seconds since boot into Unix time, now.
double bootTime() { return secondsOf( CLOCK_REALTIME ) - secondsOf( CLOCK_BOOTTIME ); }

// Date and time of day, to the millisecond, of a moment that is given in seconds since boot. The difference between the
// two clocks is that of now: if the wall clock was set in the meantime, older messages are shown by its new setting.
std::string wallClockText( double sinceBoot, char const * format, tm * ( *broken )(time_t const *, tm *)) {
   double const wall = sinceBoot + bootTime();
   // Beyond every calendar: the file was not written by maintd, or is damaged.
   if( !( std::abs( wall ) < 1e12 ) ) return "-";
   // Rounded down before it is taken apart, so that seconds and milliseconds belong together.
   auto const milliseconds = static_cast<long long>( std::floor( wall * 1e3 ) );
   auto const seconds = static_cast<time_t>( milliseconds / 1000 );
   tm parts{};
   broken( &seconds, &parts );
   std::array<char, 64> day{};
   std::strftime( day.data(), day.size(), format, &parts );
   std::array<char, 80> text{};
   std::snprintf( text.data(), text.size(), "%s.%03lld", day.data(), milliseconds % 1000 );
   return text.data();
}

std::string localTime( double sinceBoot ) { return wallClockText( sinceBoot, "%Y-%m-%d %H:%M:%S", localtime_r ); }
std::string utc( double sinceBoot ) { return wallClockText( sinceBoot, "%Y-%m-%dT%H:%M:%S", gmtime_r ) + "Z"; }

void printLine( Message const & message, bool thisBoot ) {
   // The wall-clock time of a moment in another boot can no longer be told.
   std::string const wall = thisBoot ? localTime( message.time ) : "-";
   // A file that is damaged may say any number, and nobody reads three hundred digits of it.
   bool const sane = std::abs( message.time ) < 1e12;
   std::array<char, 128> head{};
   std::snprintf( head.data(), head.size(), sane ? "%15.6f  %-23s  %d  " : "%15.6g  %-23s  %d  ", message.time,
                  wall.c_str(), message.level );
   std::cout << head.data() << printable( message.text ) << "\n";
}

void printJsonLine( Message const & message, bool thisBoot ) {
   using Kel::value;
   Kel::Value::Object object{ { "t", value( message.time ) },
                              { "utc", Kel::Value() },
                              { "level", value( message.level ) },
                              { "sequence", value( message.sequence ) },
                              { "text", value( message.text ) } };
   // In its place, so that the members keep their order; null for a boot that has passed, as above.
   if( thisBoot ) object[1].second = value( utc( message.time ) );
   std::cout << Kel::toJson( value( std::move( object ) ) ) << "\n";
}

// Messages to standard output; what a reader must know about them to standard error, which does not overtake it: the
// two streams are tied.
void printNews( Follower::News const & news, bool json ) {
   if( news.newRing ) complain( "maintd was started again; its new trace begins here" );
   if( news.missed > 0 ) complain( std::to_string( news.missed ) + " messages were overwritten before they were read" );
   for( Message const & message : news.messages ) {
      if( json ) {
         printJsonLine( message, news.thisBoot );
      } else {
         printLine( message, news.thisBoot );
      }
   }
   std::cout.flush();
   if( news.damaged ) complain( "the trace is damaged behind this message" );
}

// Of what is there when the reading begins.
void keepAsked( Follower::News & news, TraceOptions const & options ) {
   auto & messages = news.messages;
   if( options.since ) {
      // In another boot, moments of which can no longer be told, everything is older than what is asked for.
      if( !news.thisBoot ) complain( "this trace is of an earlier boot; without --since it is shown" );
      double const from = *options.since - bootTime();
      std::erase_if( messages, [&]( Message const & m ) { return !news.thisBoot || !( m.time >= from ); } );
   }
   if( !options.last || messages.size() <= *options.last ) return;
   messages.erase( messages.begin(), messages.end() - static_cast<std::ptrdiff_t>( *options.last ) );
}

[[noreturn]] void followOn( Follower & follower, std::string const & file, TraceOptions const & options ) {
   auto news = follower.next();
   if( news ) keepAsked( *news, options );
   // Said once: a path that was mistyped would otherwise look like a maintd with nothing to say.
   if( !news ) complain( "waiting for a trace at " + file );
   while( true ) {
      if( news ) {
         printNews( *news, options.json );
      } else {
         std::this_thread::sleep_for( ringPollInterval );
      }
      news = follower.next();
   }
}

// The default of maintd's --trace-file.
std::string traceBeside( std::filesystem::path const & socket ) {
   auto const named = socket.filename() == "control.sock" ? socket.parent_path() / "maintd" : socket;
   return std::filesystem::path( named ).replace_extension( ".trace" ).string();
}

}  // namespace

int trace( Client const & client, TraceOptions const & options ) {
   std::string const file = options.file.empty() ? traceBeside( client.controlPath() ) : options.file;
   Follower follower( file );
   if( options.follow ) followOn( follower, file, options );
   auto news = follower.next();
   if( !news ) return complain( "there is no trace at " + file );
   keepAsked( *news, options );
   printNews( *news, options.json );
   // What could be read has been printed all the same.
   return news->damaged ? failed : done;
}

std::optional<double> traceSince( std::string const & text ) {
   double const now = secondsOf( CLOCK_REALTIME );
   if( auto const ago = Kel::readDuration( text ); ago.reason.empty() ) return now - ago.seconds;
   auto const today = static_cast<time_t>( now );
   for( char const * format :
        { "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d", "%H:%M:%S", "%H:%M" } ) {
      bool const ofADay = format[1] == 'Y';
      tm parts{};
      localtime_r( &today, &parts );
      parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
      char const * const end = strptime( text.c_str(), format, &parts );
      if( !end || *end ) continue;
      parts.tm_isdst = -1;
      auto const found = static_cast<double>( mktime( &parts ) );
      // A time of day that is still to come was yesterday's.
      return ofADay || found <= now ? found : found - 86400;
   }
   return std::nullopt;
}

std::string levelsFault( std::string const & levels ) {
   if( levels == "none" ) return "";
   // The comma makes getline() see an empty last entry, as in "1,", which maintd would refuse. It also refuses the
   // empty text, which could be a variable that was not set: "none" has to be written.
   std::istringstream entries( levels + "," );
   for( std::string entry; std::getline( entries, entry, ',' ); ) {
      unsigned level = 0;
      auto const read = std::from_chars( entry.data(), entry.data() + entry.size(), level );
      if( read.ec == std::errc() && read.ptr == entry.data() + entry.size() && level <= 31 ) continue;
      return "\"" + entry + "\" is no level; levels are numbers from 0 to 31, as in 1,2,4, or none";
   }
   return "";
}

int traceLevels( Client const & client, std::string const & levels, bool json ) {
   Target target{ "trace", "levels" };
   target.parameter( "levels", levels == "none" ? "" : levels );
   Answer const answer = client.post( target, levelsShape );
   if( !answer.ok() ) return complain( answer );
   if( json ) {
      printJson( answer );
      return done;
   }
   for( auto const & [handle, list] : *inner( answer.object(), "levels" ) ) {
      std::string text;
      for( uint32_t const level : boost::json::value_to<std::vector<uint32_t>>( list ) ) {
         text += " " + std::to_string( level );
      }
      std::cout << printable( handle ) << ":" << ( text.empty() ? " none" : text ) << "\n";
   }
   return done;
}

}  // namespace Cli
