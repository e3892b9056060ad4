#include "Commands.h"

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <thread>

#include "Print.h"

namespace Cli {

namespace json = boost::json;
using Clock = std::chrono::steady_clock;

int complain( std::string const & what, ExitStatus status ) {
   std::cerr << "maintctl: " << what << "\n";
   return status;
}

namespace {

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

// What a unit goes to and what it must not fall back to on the way.
struct Operation {
   char const * verb;
   char const * goal;
   char const * underway;
   char const * already;
};
constexpr Operation entering{ "enter", "inMaintenance", "entering", "is already in or entering maintenance" };
constexpr Operation leaving{ "exit", "active", "leaving", "is already out of or leaving maintenance" };

std::string unitTarget( std::string const & unit ) { return "/v1/units/" + encoded( unit ); }

// One line per change of what the unit waits for, so a log of it can be read.
void narrate( json::object const & unit, Clock::time_point begun, std::string & told ) {
   std::string story =
      text( unit, "state" ) + ", " + text( unit, "drained" ) + " of " + text( unit, "monitored" ) + " drained";
   for( auto const & value : unit.at( "interfaces" ).as_array() ) {
      auto const & intf = value.as_object();
      std::string const waiting = text( intf, "waitingFor" );
      if( !waiting.empty() ) story += "; " + text( intf, "interface" ) + ": " + waiting;
   }
   if( story == told ) return;
   told = story;
   auto const seconds = std::chrono::duration<double>( Clock::now() - begun ).count();
   std::cout << "  " << spanText( seconds ) << "  " << story << std::endl;
}

void printEnd( json::object const & unit, Operation const & operation ) {
   std::cout << "unit " << text( unit, "unit" ) << " is " << operation.goal << ", generation "
             << text( unit, "generation" ) << "\n";
   if( std::string const note = text( unit, "note" ); !note.empty() ) std::cout << note << "\n";
}

int follow( Client const & client, Options const & options, std::string const & unit, Operation const & operation ) {
   auto const begun = Clock::now();
   std::string told;
   while( true ) {
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
      if( state != operation.underway ) return complain( "unit " + unit + " is now " + state );
      auto const waited = std::chrono::duration<double>( Clock::now() - begun ).count();
      if( options.timeoutSeconds && waited >= *options.timeoutSeconds ) {
         return complain( "unit " + unit + " is still " + state + " after " + spanText( waited ) +
                             "; it goes on (maintctl status says what it waits for)",
                          deadlinePassed );
      }
      std::this_thread::sleep_for( pollInterval );
   }
}

int run( Client const & client, Options const & options, std::string const & unit, Operation const & operation ) {
   Answer const answer = client.post( unitTarget( unit ) + "/" + operation.verb );
   if( answer.status == 409 ) return complain( answer.error(), refused );
   if( !answer.ok() ) return complain( answer.error() );
   auto const & object = answer.body.as_object();
   bool const already = text( object, "result" ) == "already";
   if( options.json && !options.wait ) {
      std::cout << answer.text;
   } else if( !options.json ) {
      std::cout << "unit " << unit << " "
                << ( already ? operation.already
                             : std::string( operation.underway ) + " maintenance, generation " +
                                  text( object, "generation" ) )
                << std::endl;
   }
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
