#include "Commands.h"

#include <iostream>

#include "tables/Units.h"

namespace Cli {

int complain( std::string const & what, ExitStatus status ) {
   std::cerr << "maintctl: " << what << "\n";
   return status;
}

int complain( Answer const & answer ) {
   // A status of its own, because a script may well try again later.
   bool const refusal = answer.status == 409;
   auto const * const body = answer.body.if_object();
   if( !refusal || !body || list( *body, "why" ).empty() ) {
      return complain( answer.error(), refusal ? refused : failed );
   }
   for( auto const & reason : list( *body, "why" ) ) {
      if( reason.is_string() ) complain( reason.get_string().c_str() );
   }
   return refused;
}

namespace {

// Prints one answer: as it came for programs, through `print` for people.
template<class Print>
int show( Answer const & answer, Options const & options, Print const & print ) {
   if( !answer.ok() ) return complain( answer );
   if( options.json ) {
      std::cout << answer.text;
   } else {
      print( std::cout, answer.body.as_object() );
   }
   return done;
}

int printText( Answer const & answer ) {
   if( !answer.ok() ) return complain( answer );
   std::cout << answer.text;
   return done;
}

std::string unitTarget( std::string const & unit ) { return "/v1/units/" + encoded( unit ); }

void printAll( std::ostream & out, Object const & answer ) {
   for( auto const & unit : list( answer, "units" ) ) {
      printStatus( out, unit.as_object() );
      out << "\n";
   }
}

}  // namespace

int status( Client const & client, Options const & options, std::string const & unit ) {
   if( unit.empty() ) return show( client.get( "/v1/units" ), options, printAll );
   return show( client.get( unitTarget( unit ) ), options, printStatus );
}

int units( Client const & client, Options const & options ) {
   return show( client.get( "/v1/units" ), options, printUnits );
}

int interfaces( Client const & client, Options const & options ) {
   return show( client.get( "/v1/interfaces" ), options, printInterfaces );
}

int ready( Client const & client, Options const & options, std::string const & unit ) {
   Answer const answer = client.get( unitTarget( unit ) + "/ready" );
   int const shown = show( answer, options, printReady );
   if( shown != done ) return shown;
   return yes( answer.body.as_object(), "ready" ) ? done : failed;
}

int explain( Client const & client, Options const & options, std::string const & interface ) {
   return show( client.get( "/v1/interfaces/" + encoded( interface ) ), options, printExplained );
}

int reload( Client const & client, Options const & options ) {
   return show( client.post( "/v1/reload" ), options,
                []( std::ostream & out, Object const & ) { out << "maintd has read its configuration again\n"; } );
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
