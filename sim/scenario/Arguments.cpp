#include "scenario/Arguments.h"

#include "kel/Json.h"

namespace Sim {

using Kel::Value;

Dovra::StateComponents components( Json const & path ) {
   Dovra::StateComponents found;
   for( Json const & component : path.list( "a path, a list of names," ) ) {
      Value const value = component.value();
      if( auto const * const name = value.as<std::string>() ) {
         found.push_back( *name );
      } else if( value.as<uint64_t>() ) {
         // A negative or fractional number is no key of any record.
         found.push_back( Kel::toJson( value ) );
      } else {
         throw LineError( component.column, std::string( "a name is wanted in a path, not " ) + value.kind() );
      }
   }
   if( found.empty() ) throw LineError( path.column, "the path is empty" );
   return found;
}

double amount( Json const & json, char const * wanted, double atMost ) {
   double const number = atColumn( json.column, [&] { return Kel::doubleFromValue( json.value() ); } );
   if( number < 0 ) throw LineError( json.column, std::string( wanted ) + " must not be negative" );
   if( number > atMost ) throw LineError( json.column, std::string( wanted ) + " goes too far" );
   return number;
}

std::string text( Json const & json, char const * wanted ) {
   Value const value = json.value();
   if( auto const * const found = value.as<std::string>() ) return *found;
   throw LineError( json.column, std::string( wanted ) + " is wanted here, not " + value.kind() );
}

std::vector<std::string> texts( Json const & json, char const * wantedList, char const * wanted ) {
   std::vector<std::string> found;
   for( Json const & element : json.list( wantedList ) ) found.push_back( text( element, wanted ) );
   return found;
}

}  // namespace Sim
