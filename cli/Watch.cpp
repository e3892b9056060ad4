// maintctl watch: the live view on a terminal, lines elsewhere.
#include <clocale>
#include <csignal>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "WatchSource.h"
#include "watch/Batch.h"
#include "watch/Live.h"
#include "watch/Screen.h"

namespace Cli {

namespace {

// What stays on the terminal of a view that was to end by itself.
void printLast( Watch::Frame const & frame ) {
   std::size_t lines = frame.lines.size();
   // Behind the last thing that is said there is only the line with the keys.
   for( lines = lines > 0 ? lines - 1 : 0; lines > 0 && frame.lines[lines - 1].text().empty(); ) --lines;
   for( std::size_t i = 0; i < lines; ++i ) std::cout << frame.lines[i].text() << "\n";
}

// Nothing where the terminal could not be used.
std::optional<int> watchLive( Client const & client, WatchOptions const & options, Object const & first,
                              Watch::Look look ) {
   std::cout.flush();
   WatchSource source( client, options.unit );
   auto const ending = Watch::live( { options.unit, options.intervalSeconds, options.pictures, look }, first, source );
   if( ending.unusable ) return std::nullopt;
   if( ending.signal != 0 ) {
      // As if nobody had ever caught it, so that whoever called sees what has ended it. The terminal's library did.
      std::signal( ending.signal, SIG_DFL );
      ::raise( ending.signal );
   }
   if( options.pictures ) printLast( ending.last );
   return done;
}

// Asks at each interval; where maintd goes it says so once, and goes on when it is back.
class Lines {
 public:
   Lines( Client const & client, WatchOptions const & options, Watch::Look look )
      : client_( client ), options_( options ), scene_( look ) {}

   int run( Answer const & first ) {
      print( first );
      int status = done;
      for( uint32_t n = 1; !options_.pictures || n < *options_.pictures; ++n ) {
         std::this_thread::sleep_for( std::chrono::duration<double>( options_.intervalSeconds ) );
         status = next();
      }
      return status;
   }

 private:
   int next() {
      try {
         Answer const answer = stateOf( client_, options_.unit );
         if( !answer.ok() ) return once( answer.error(), failed );
         print( answer );
         told_.clear();
         return done;
      } catch( NotReached const & error ) {
         return once( error.what(), notReached );
      }
   }

   int once( std::string const & what, ExitStatus status ) {
      if( what != told_ ) complain( what );
      told_ = what;
      return status;
   }

   void print( Answer const & answer ) {
      scene_.answerIs( answer.object(), options_.intervalSeconds );
      if( !headed_ ) std::cout << Watch::batchHeading( scene_ );
      headed_ = true;
      std::cout << Watch::batchLines( scene_, Watch::dateAndTime() ) << std::flush;
   }

   Client const & client_;
   WatchOptions const & options_;
   Watch::Scene scene_;
   std::string told_;
   bool headed_ = false;
};

}  // namespace

int watch( Client const & client, WatchOptions const & options ) {
   std::setlocale( LC_CTYPE, "" );
   Watch::Look const look = Watch::lookOfLocale();
   // Asked before the terminal is touched: a daemon that is not there is said as by every other command.
   Answer const first = stateOf( client, options.unit );
   if( !first.ok() ) return complain( first );
   if( Watch::Screen::possible() ) {
      if( auto const status = watchLive( client, options, first.object(), look ) ) return *status;
   }
   return Lines( client, options, look ).run( first );
}

}  // namespace Cli
