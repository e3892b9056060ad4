#include "Commands.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "Print.h"
#include "kel/QuantityText.h"

namespace Cli {

namespace json = boost::json;
using Clock = std::chrono::steady_clock;

int complain( std::string const & what, ExitStatus status ) {
   std::cerr << "maintctl: " << what << "\n";
   return status;
}

namespace {

// The API tells of no changes by itself. A person does not notice the delay, and an answer costs maintd a walk over one
// unit.
constexpr std::chrono::milliseconds pollInterval( 250 );

// Prints one answer: as it came for programs, through `print` for people.
template<class Print>
int show( Answer const & answer, Options const & options, Print const & print ) {
   if( !answer.ok() ) return complain( answer.error() );
   if( options.json ) {
      std::cout << answer.text;
   } else {
      print( answer.body.as_object() );
   }
   return done;
}

int printText( Answer const & answer ) {
   if( !answer.ok() ) return complain( answer.error() );
   std::cout << answer.text;
   return done;
}

// One direction: the request, the state it ends in, the only state on the way there, and how it reads when there was
// nothing to start.
struct Operation {
   char const * verb;
   char const * goal;
   char const * underway;
   char const * already;
};
constexpr Operation entering{ "enter", "inMaintenance", "entering", "is already in or entering maintenance" };
constexpr Operation leaving{ "exit", "active", "leaving", "is already out of or leaving maintenance" };

std::string unitTarget( std::string const & unit ) { return "/v1/units/" + encoded( unit ); }

// To the second: the daemon is only asked a few times in each.
std::string waitedText( double seconds ) { return Kel::durationText( std::round( seconds ) ); }

// One line per change of what the unit waits for, so a log of it can be read.
void narrate( json::object const & unit, Clock::time_point begun, std::string & told ) {
   std::string story =
      text( unit, "state" ) + ", " + text( unit, "drained" ) + " of " + text( unit, "monitored" ) + " drained";
   for( auto const & value : unit.at( "interfaces" ).as_array() ) {
      auto const & intf = value.as_object();
      // Those that wait for nothing are counted above.
      std::string const waiting = text( intf, "waitingFor" );
      if( !waiting.empty() ) story += "; " + text( intf, "interface" ) + ": " + waiting;
   }
   if( story == told ) return;
   told = story;
   auto const seconds = std::chrono::duration<double>( Clock::now() - begun ).count();
   // Flushed at each line: it may go to a pipe, and the next may be minutes away.
   std::cout << "  " << waitedText( seconds ) << "  " << story << std::endl;
}

void printEnd( json::object const & unit, Operation const & operation ) {
   std::cout << "unit " << text( unit, "unit" ) << " is " << operation.goal << ", generation "
             << text( unit, "generation" ) << "\n";
   // A unit in which nothing was monitored is through at once. That it was for want of interfaces, and not of traffic,
   // must not be left to be guessed.
   if( std::string const note = text( unit, "note" ); !note.empty() ) std::cout << note << "\n";
}

int follow( Client const & client, Options const & options, std::string const & unit, Operation const & operation ) {
   auto const begun = Clock::now();
   std::string told;
   while( true ) {
      // Asked before the time is looked at, so that a timeout of 0 finds a unit that is there already.
      Answer const answer = client.get( unitTarget( unit ) );
      if( !answer.ok() ) return complain( answer.error() );
      auto const & object = answer.body.as_object();
      if( !options.json ) narrate( object, begun, told );
      std::string const state = text( object, "state" );
      if( state == operation.goal ) {
         if( options.json ) {
            std::cout << answer.text;
         } else {
            printEnd( object, operation );
         }
         return done;
      }
      // Somebody has turned it round. Waiting on would end, if ever, with the result of another request.
      if( state != operation.underway ) return complain( "unit " + unit + " is now " + state );
      auto const waited = std::chrono::duration<double>( Clock::now() - begun ).count();
      // Only the waiting ends here. To undo the request as well is for whoever asked to decide.
      if( options.timeoutSeconds && waited >= *options.timeoutSeconds ) {
         return complain( "unit " + unit + " is still " + state + " after " + waitedText( waited ) +
                             "; it goes on (maintctl status says what it waits for)",
                          deadlinePassed );
      }
      std::this_thread::sleep_for( pollInterval );
   }
}

int run( Client const & client, Options const & options, std::string const & unit, Operation const & operation ) {
   Answer const answer = client.post( unitTarget( unit ) + "/" + operation.verb );
   // A status of its own, because a script may well try again later.
   if( answer.status == 409 ) return complain( answer.error(), refused );
   if( !answer.ok() ) return complain( answer.error() );
   auto const & object = answer.body.as_object();
   bool const already = text( object, "result" ) == "already";
   // A program gets one document: with --wait the unit at its end, otherwise the answer to the request.
   if( options.json && !options.wait ) {
      std::cout << answer.text;
   } else if( !options.json ) {
      std::cout << "unit " << unit << " "
                << ( already ? operation.already
                             : std::string( operation.underway ) + " maintenance, generation " +
                                  text( object, "generation" ) )
                << std::endl;
   }
   // Also for a unit that was on its way already: the caller wants it to have arrived.
   return options.wait ? follow( client, options, unit, operation ) : done;
}

}  // namespace

int status( Client const & client, Options const & options ) {
   return show( client.get( "/v1/units" ), options,
                []( json::object const & answer ) { printStatus( std::cout, answer.at( "units" ).as_array() ); } );
}

int units( Client const & client, Options const & options ) {
   return show( client.get( "/v1/units" ), options,
                []( json::object const & answer ) { printUnits( std::cout, answer.at( "units" ).as_array() ); } );
}

int interfaces( Client const & client, Options const & options ) {
   return show( client.get( "/v1/interfaces" ), options, []( json::object const & answer ) {
      printInterfaces( std::cout, answer.at( "interfaces" ).as_array() );
   } );
}

int enter( Client const & client, Options const & options, std::string const & unit ) {
   return run( client, options, unit, entering );
}

int exit( Client const & client, Options const & options, std::string const & unit ) {
   return run( client, options, unit, leaving );
}

int get( Client const & client, std::string const & path ) {
   // Slashes separate here what they separate there, and everything else is encoded. A key with slashes ("Ethernet1/1")
   // need not be marked: maintd joins components where one alone leads nowhere.
   std::string target = "/v1/state";
   for( std::size_t begin = 0; begin <= path.size(); ) {
      std::size_t const end = std::min( path.find( '/', begin ), path.size() );
      if( end > begin ) target += "/" + encoded( path.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return printText( client.get( target ) );
}

int dump( Client const & client ) { return printText( client.get( "/v1/dump" ) ); }

}  // namespace Cli
