#include "Commands.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <iostream>
#include <sstream>

#include "tables/Printable.h"
#include "tables/Units.h"

namespace Cli {

int complain( std::string const & what, ExitStatus status ) {
   std::cerr << "maintctl: " << printable( what ) << "\n";
   return status;
}

int complain( Answer const & answer ) {
   // A status of its own, because a script may well try again later.
   ExitStatus const status = answer.status == 409 ? refused : failed;
   auto const reasons = texts( answer.body.get_object(), "why" );
   if( reasons.empty() ) return complain( answer.error(), status );
   // More alike nobody reads.
   constexpr std::size_t most = 20;
   std::size_t const told = reasons.size() <= most + 1 ? reasons.size() : most;
   for( std::size_t i = 0; i < told; ++i ) complain( reasons[i] );
   if( told < reasons.size() ) complain( "... and " + std::to_string( reasons.size() - told ) + " reasons more" );
   return status;
}

void printJson( Answer const & answer ) {
   std::string text = answer.text;
   // Between its words JSON may have one, and on a terminal what follows would be written over what came before.
   std::replace( text.begin(), text.end(), '\r', ' ' );
   std::cout << text;
}

namespace {

// Prints one answer: as it came for programs, through `print` for people.
template<class Print>
int show( Answer const & answer, Options const & options, Print const & print ) {
   if( !answer.ok() ) return complain( answer );
   if( options.json ) {
      printJson( answer );
      return done;
   }
   // All or nothing: half a table would be taken for the whole.
   std::ostringstream out;
   print( out, answer.object() );
   std::cout << out.str();
   return done;
}

void printUnitsWithInterfaces( std::ostream & out, Object const & answer, bool all ) {
   for( auto const & unit : list( answer, "units" ) ) {
      printStatus( out, object( unit ), all );
      out << "\n";
   }
   if( list( answer, "units" ).empty() ) out << "there are no units\n";
}

}  // namespace

int status( Client const & client, Options const & options, std::string const & unit ) {
   bool const all = options.all;
   if( unit.empty() )
      return show( client.get( { "units" }, unitsShape ), options,
                   [=]( auto & out, Object const & answer ) { printUnitsWithInterfaces( out, answer, all ); } );
   return show( client.get( { "units", unit }, unitShape ), options,
                [=]( auto & out, Object const & answer ) { printStatus( out, answer, all ); } );
}

int units( Client const & client, Options const & options ) {
   return show( client.get( { "units" }, unitsShape ), options, printUnits );
}

int interfaces( Client const & client, Options const & options ) {
   return show( client.get( { "interfaces" }, interfacesShape ), options, printInterfaces );
}

int ready( Client const & client, Options const & options, std::string const & unit ) {
   Answer const answer = client.get( { "units", unit, "ready" }, readyShape );
   int const shown = show( answer, options, printReady );
   if( shown != done ) return shown;
   return yes( answer.object(), "ready" ) ? done : failed;
}

int explain( Client const & client, Options const & options, std::string const & interface ) {
   return show( client.get( { "interfaces", interface }, unitsShape ), options, printExplained );
}

int reload( Client const & client, Options const & options ) {
   return show( client.post( { "reload" }, reloadShape ), options,
                []( std::ostream & out, Object const & ) { out << "maintd has read its configuration again\n"; } );
}

namespace {

// What lies below a path that leads to no record, as paths that can be asked for; none for an answer that is a record.
std::optional<std::vector<std::string>> branches( std::string const & json, std::string const & path ) {
   // Only a small answer can be a list of names, and a large one costs memory.
   constexpr std::size_t most = 1024 * 1024;
   boost::json::error_code error;
   auto const value = json.size() <= most ? boost::json::parse( json, error ) : boost::json::value();
   auto const * const object = error ? nullptr : value.if_object();
   auto const * const below = object && object->size() == 1 ? object->if_contains( "below" ) : nullptr;
   if( !below || !below->is_array() ) return std::nullopt;
   std::vector<std::string> paths;
   for( auto const & name : below->get_array() ) {
      if( !name.is_string() ) return std::nullopt;
      paths.push_back( ( path.empty() ? "" : path + "/" ) + std::string( name.get_string() ) );
   }
   return paths;
}

}  // namespace

int get( Client const & client, Options const & options, std::string const & path ) {
   // Slashes separate here what they separate there, and everything else is encoded. A key with slashes ("Ethernet1/1")
   // need not be marked: maintd joins components where one alone leads nowhere.
   Target target{ "state" };
   std::istringstream components( path );
   std::string asked;
   for( std::string component; std::getline( components, component, '/' ); ) {
      if( component.empty() ) continue;
      target.append( component );
      asked += ( asked.empty() ? "" : "/" ) + component;
   }
   Answer const answer = client.getLarge( target, "application/json" );
   if( !answer.ok() ) return complain( answer );
   auto const below = options.json ? std::nullopt : branches( answer.text, asked );
   if( !below ) {
      printJson( answer );
      return done;
   }
   for( std::string const & branch : *below ) std::cout << printable( branch ) << "\n";
   return done;
}

int dump( Client const & client ) {
   Answer const answer = client.getLarge( { "dump" }, "text/plain" );
   if( !answer.ok() ) return complain( answer );
   std::cout << answer.text;
   return done;
}

}  // namespace Cli
