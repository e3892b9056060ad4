// maintctl enter and exit: the request, and the following of what it has begun.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "kel/QuantityText.h"
#include "tables/Changes.h"
#include "tables/Printable.h"
#include "tables/Report.h"
#include "tables/Units.h"
#include "tables/Words.h"

namespace Cli {

namespace {

// The API tells of no changes by itself. A person does not notice the delay, and an answer costs maintd a walk over one
// unit.
constexpr std::chrono::milliseconds pollInterval( 250 );
// Of a thousand interfaces that walk and its answer are work: whoever waits takes a twentieth of the time at most, as
// long as that leaves an answer within two seconds.
constexpr int restAfterAnswer = 20;
constexpr std::chrono::seconds longestPause( 2 );

// One direction: the request, the state it ends in, the only state on the way there, and how it reads when there was
// nothing to start.
struct Operation {
   char const * verb;
   char const * goal;
   char const * underway;
   char const * already;
};
constexpr Operation entering{ "enter", "inMaintenance", "entering", "is in or entering maintenance already" };
constexpr Operation leaving{ "exit", "active", "leaving", "is already out of or leaving maintenance" };

// A deadline that has come leaves time for one look all the same: maintd answers at once when it runs.
constexpr std::chrono::milliseconds lastLook( 250 );

// To the second: the daemon is only asked a few times in each.
std::string waitedText( double seconds ) { return Kel::durationText( std::round( seconds ) ); }

// The time that the caller gives for the whole, from the request on.
class Patience {
 public:
   explicit Patience( Options const & options )
      : end_( options.timeoutSeconds ? std::optional( begun_ + span( *options.timeoutSeconds ) ) : std::nullopt ) {}

   [[nodiscard]] double waited() const { return std::chrono::duration<double>( Clock::now() - begun_ ).count(); }
   [[nodiscard]] bool over() const { return end_ && Clock::now() >= *end_; }
   // For whatever comes next; none: as long as it likes.
   [[nodiscard]] std::optional<Clock::time_point> end() const {
      return end_ ? std::optional( std::max( *end_, Clock::now() + lastLook ) ) : std::nullopt;
   }
   // `took`: the answer before.
   void pause( Clock::duration took ) const {
      Clock::duration const rest = std::clamp<Clock::duration>( restAfterAnswer * took, pollInterval, longestPause );
      std::this_thread::sleep_until( std::min( Clock::now() + rest, end_.value_or( Clock::time_point::max() ) ) );
   }

 private:
   static Clock::duration span( double seconds ) {
      return std::chrono::duration_cast<Clock::duration>( std::chrono::duration<double>( seconds ) );
   }

   Clock::time_point const begun_ = Clock::now();
   std::optional<Clock::time_point> const end_;
};

// The following of one request to its end.
class Following {
 public:
   Following( Client const & client, Options const & options, std::string const & unit, Operation const & operation,
              Patience const & patience )
      : client_( client ), options_( options ), unit_( unit ), operation_( operation ), patience_( patience ) {}

   int run() {
      while( true ) {
         auto const asked = Clock::now();
         // Asked before the time is looked at, so that a timeout of 0 finds a unit that is there already.
         Answer const answer = client_.until( patience_.end() ).get( { "units", unit_ }, unitShape );
         Clock::duration const took = Clock::now() - asked;
         if( !answer.ok() ) return complain( answer );
         auto const & unit = answer.object();
         if( !options_.json ) narrate( unit );
         std::string const state = text( unit, "state" );
         if( state == operation_.goal ) return arrived( answer );
         // Somebody has turned it round, or a stage has. Waiting on would end, if ever, with the result of another
         // request.
         if( state != operation_.underway ) return turnedBack( state );
         // Only the waiting ends here. To undo the request as well is for whoever asked to decide.
         if( patience_.over() ) {
            return complain( "unit " + unit_ + " is still " + word( state ) + " after " +
                                waitedText( patience_.waited() ) +
                                "; it goes on (maintctl status says what it waits for)",
                             deadlinePassed );
         }
         patience_.pause( took );
      }
   }

 private:
   // One line per change, so a log of it can be read.
   void narrate( Object const & unit ) {
      std::string waited = waitedText( patience_.waited() );
      // So that lines stand below each other for the first days.
      waited.insert( 0, std::max<std::size_t>( waited.size(), 6 ) - waited.size(), ' ' );
      // Flushed at each line: it may go to a pipe, and the next may be minutes away.
      for( std::string const & line : changes_.next( unit ) ) std::cout << waited << "  " << line << std::endl;
   }

   // Null where there is none: a unit that has never been in maintenance.
   [[nodiscard]] boost::json::value window() const {
      Answer const answer = client_.until( patience_.end() ).get( { "windows", unit_, "last" }, windowShape );
      return answer.ok() ? answer.body : boost::json::value();
   }

   [[nodiscard]] int arrived( Answer const & answer ) const {
      auto const & unit = answer.object();
      if( options_.json ) {
         printJson( answer );
         return done;
      }
      std::cout << "unit " << printable( unit_ ) << " is " << word( operation_.goal ) << ", generation "
                << text( unit, "generation" ) << "\n";
      for( std::string const & line : { readinessText( unit ), text( unit, "note" ) } ) {
         if( !line.empty() ) std::cout << line << "\n";
      }
      auto const stay = window();
      std::string const unproven =
         operation_.verb == entering.verb && stay.is_object() ? unprovenText( stay.get_object() ) : "";
      if( !unproven.empty() ) complain( "it got there UNPROVEN: " + unproven );
      return done;
   }

   [[nodiscard]] int turnedBack( std::string const & state ) const {
      auto const stay = window();
      std::string const why = stay.is_object() ? turnedBackText( stay.get_object(), operation_.verb ) : "";
      return complain( "unit " + unit_ + " is now " + word( state ) + ( why.empty() ? "" : ": " + why ) );
   }

   Client const & client_;
   Options const & options_;
   std::string const & unit_;
   Operation const & operation_;
   Patience const & patience_;
   Changes changes_;
};

void printRequest( Object const & answer, Operation const & operation, bool dryRun ) {
   std::string const result = text( answer, "result" );
   std::cout << "unit " << text( answer, "unit" ) << " ";
   auto const remarks = texts( answer, "why" );
   if( result == "already" ) {
      std::cout << operation.already
                << ( remarks.empty() ? ""
                     : dryRun        ? "; its proof would go on without:"
                                     : "; its proof goes on without:" );
   } else if( result == "wouldStart" ) {
      std::cout << "would be " << operation.underway << " maintenance; nothing was changed";
   } else {
      std::cout << operation.underway << " maintenance, generation " << text( answer, "generation" );
   }
   std::cout << std::endl;
   // Each interface that is left out of the proof.
   for( std::string const & remark : remarks ) std::cout << "  " << remark << std::endl;
}

// `asked` is the request with its parameters.
int run( Client const & client, Options const & options, std::string const & unit, Operation const & operation,
         Target const & asked ) {
   Patience const patience( options );
   Answer const answer = client.until( patience.end() ).post( asked, requestShape );
   if( !answer.ok() ) return complain( answer );
   // A program gets one document: with --wait the unit at its end, otherwise the answer to the request.
   if( options.json && !options.wait ) {
      printJson( answer );
   } else if( !options.json ) {
      printRequest( answer.object(), operation, options.dryRun );
   }
   // Also for a unit that was on its way already: the caller wants it to have arrived.
   return options.wait ? Following( client, options, unit, operation, patience ).run() : done;
}

}  // namespace

int enter( Client const & client, Options const & options, std::string const & unit ) {
   Target asked{ "units", unit, entering.verb };
   if( options.dryRun ) asked.parameter( "dry-run", "1" );
   if( options.yes ) asked.parameter( "yes", "1" );
   for( std::string const & name : options.without ) asked.parameter( "without", name );
   if( std::string const address = sessionAddress(); !address.empty() ) asked.parameter( "session", address );
   return run( client, options, unit, entering, asked );
}

int exit( Client const & client, Options const & options, std::string const & unit ) {
   return run( client, options, unit, leaving, { "units", unit, leaving.verb } );
}

}  // namespace Cli
