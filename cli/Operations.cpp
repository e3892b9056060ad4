// maintctl enter and exit: the request, and the following of what it has begun.
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "kel/QuantityText.h"
#include "tables/Report.h"
#include "tables/Units.h"

namespace Cli {

using Clock = std::chrono::steady_clock;

namespace {

// The API tells of no changes by itself. A person does not notice the delay, and an answer costs maintd a walk over one
// unit.
constexpr std::chrono::milliseconds pollInterval( 250 );

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

// To the second: the daemon is only asked a few times in each.
std::string waitedText( double seconds ) { return Kel::durationText( std::round( seconds ) ); }

// The following of one request to its end.
class Following {
 public:
   Following( Client const & client, Options const & options, std::string const & unit, Operation const & operation )
      : client_( client ), options_( options ), unit_( unit ), operation_( operation ) {}

   int run() {
      while( true ) {
         // Asked before the time is looked at, so that a timeout of 0 finds a unit that is there already.
         Answer const answer = client_.get( "/v1/units/" + encoded( unit_ ) );
         if( !answer.ok() ) return complain( answer );
         auto const & unit = answer.body.as_object();
         if( !options_.json ) narrate( unit );
         std::string const state = text( unit, "state" );
         if( state == operation_.goal ) return arrived( answer );
         // Somebody has turned it round, or a stage has. Waiting on would end, if ever, with the result of another
         // request.
         if( state != operation_.underway ) return turnedBack( state );
         // Only the waiting ends here. To undo the request as well is for whoever asked to decide.
         if( options_.timeoutSeconds && waited() >= *options_.timeoutSeconds ) {
            return complain( "unit " + unit_ + " is still " + state + " after " + waitedText( waited() ) +
                                "; it goes on (maintctl status says what it waits for)",
                             deadlinePassed );
         }
         std::this_thread::sleep_for( pollInterval );
      }
   }

 private:
   [[nodiscard]] double waited() const { return std::chrono::duration<double>( Clock::now() - begun_ ).count(); }

   // One line per change of what the unit waits for, so a log of it can be read.
   void narrate( Object const & unit ) {
      Progress const now = progress( unit );
      if( now.stands == told_ ) return;
      told_ = now.stands;
      // Flushed at each line: it may go to a pipe, and the next may be minutes away.
      std::cout << "  " << waitedText( waited() ) << "  " << now.told << std::endl;
   }

   // Null where there is none: a unit that has never been in maintenance.
   [[nodiscard]] boost::json::value window() const {
      Answer const answer = client_.get( "/v1/windows/" + encoded( unit_ ) + "/last" );
      return answer.ok() ? answer.body : boost::json::value();
   }

   [[nodiscard]] int arrived( Answer const & answer ) const {
      auto const & unit = answer.body.as_object();
      if( options_.json ) {
         std::cout << answer.text;
         return done;
      }
      std::cout << "unit " << unit_ << " is " << operation_.goal << ", generation " << text( unit, "generation" )
                << "\n";
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
      return complain( "unit " + unit_ + " is now " + state + ( why.empty() ? "" : ": " + why ) );
   }

   Client const & client_;
   Options const & options_;
   std::string const & unit_;
   Operation const & operation_;
   Clock::time_point const begun_ = Clock::now();
   std::string told_;
};

void printRequest( Object const & answer, Operation const & operation ) {
   std::string const result = text( answer, "result" );
   std::cout << "unit " << text( answer, "unit" ) << " ";
   if( result == "already" ) {
      std::cout << operation.already;
   } else if( result == "wouldStart" ) {
      std::cout << "would be " << operation.underway << " maintenance; nothing was changed";
   } else {
      std::cout << operation.underway << " maintenance, generation " << text( answer, "generation" );
   }
   std::cout << std::endl;
   // Each interface that is left out of the proof.
   for( auto const & remark : list( answer, "why" ) ) {
      if( remark.is_string() ) std::cout << "  " << remark.get_string().c_str() << std::endl;
   }
}

int run( Client const & client, Options const & options, std::string const & unit, Operation const & operation,
         std::string const & query ) {
   Answer const answer = client.post( "/v1/units/" + encoded( unit ) + "/" + operation.verb + query );
   if( !answer.ok() ) return complain( answer );
   // A program gets one document: with --wait the unit at its end, otherwise the answer to the request.
   if( options.json && !options.wait ) {
      std::cout << answer.text;
   } else if( !options.json ) {
      printRequest( answer.body.as_object(), operation );
   }
   // Also for a unit that was on its way already: the caller wants it to have arrived.
   return options.wait ? Following( client, options, unit, operation ).run() : done;
}

}  // namespace

int enter( Client const & client, Options const & options, std::string const & unit ) {
   std::string query = options.dryRun ? "?dry-run=1" : "";
   for( std::string const & name : options.without ) {
      query += ( query.empty() ? "?without=" : "&without=" ) + encoded( name );
   }
   return run( client, options, unit, entering, query );
}

int exit( Client const & client, Options const & options, std::string const & unit ) {
   return run( client, options, unit, leaving, "" );
}

}  // namespace Cli
