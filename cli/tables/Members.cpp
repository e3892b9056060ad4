#include "tables/Members.h"

#include <boost/json/serialize.hpp>
#include <cmath>

#include "tables/Printable.h"

namespace Cli {

namespace json = boost::json;

namespace {

json::value const * known( Object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   return value && !value->is_null() ? value : nullptr;
}

WrongAnswer wrong( char const * member, char const * kind ) {
   return WrongAnswer( "\"" + std::string( member ) + "\" is not " + kind );
}

// Times and rates are far below; what is not would overflow a calendar.
double boundedNumber( json::value const & value ) {
   constexpr double largest = 1e15;
   auto const number = value.to_number<double>();
   if( !( std::abs( number ) <= largest ) ) throw WrongAnswer( "a number is beyond all that is measured" );
   return number;
}

}  // namespace

std::string text( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   if( !value ) return "";
   if( value->is_structured() ) throw wrong( member, "a text" );
   return value->is_string() ? printable( value->get_string() ) : json::serialize( *value );
}

std::optional<double> number( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   if( !value ) return std::nullopt;
   if( !value->is_number() ) throw wrong( member, "a number" );
   return boundedNumber( *value );
}

bool yes( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   if( value && !value->is_bool() ) throw wrong( member, "true or false" );
   return value && value->get_bool();
}

Object const * inner( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   if( value && !value->is_object() ) throw wrong( member, "an object" );
   return value ? value->if_object() : nullptr;
}

json::array const & list( Object const & object, char const * member ) {
   static json::array const none;
   auto const * const value = known( object, member );
   if( value && !value->is_array() ) throw wrong( member, "a list" );
   return value ? value->get_array() : none;
}

std::vector<std::string> texts( Object const & object, char const * member ) {
   std::vector<std::string> all;
   for( auto const & each : list( object, member ) ) {
      if( !each.is_string() ) throw wrong( member, "a list of texts" );
      all.push_back( printable( each.get_string() ) );
   }
   return all;
}

std::string namesText( Object const & object, char const * member ) {
   std::string names;
   for( std::string const & name : texts( object, member ) ) names.append( names.empty() ? "" : ", " ).append( name );
   return names;
}

Object const & object( json::value const & value ) {
   if( !value.is_object() ) throw WrongAnswer( "where an object should be there is something else" );
   return value.get_object();
}

Kel::Value kelValue( json::value const & from ) {
   using Content = Kel::Value::Content;
   switch( from.kind() ) {
      case json::kind::null: return Kel::Value();
      case json::kind::bool_: return Kel::Value( Content( from.get_bool() ) );
      case json::kind::uint64: return Kel::Value( Content( from.get_uint64() ) );
      case json::kind::double_: return Kel::Value( Content( from.get_double() ) );
      case json::kind::string: return Kel::Value( Content( std::string( from.get_string() ) ) );
      // Unsigned numbers are unsigned there, however small they are.
      case json::kind::int64:
         return from.get_int64() < 0 ? Kel::Value( Content( from.get_int64() ) )
                                     : Kel::Value( Content( static_cast<uint64_t>( from.get_int64() ) ) );
      case json::kind::array: {
         Kel::Value::List elements;
         for( auto const & element : from.get_array() ) elements.push_back( kelValue( element ) );
         return Kel::Value( Content( std::move( elements ) ) );
      }
      case json::kind::object: {
         Kel::Value::Object members;
         for( auto const & [name, member] : from.get_object() ) members.emplace_back( name, kelValue( member ) );
         return Kel::Value( Content( std::move( members ) ) );
      }
   }
   return Kel::Value();
}

}  // namespace Cli
