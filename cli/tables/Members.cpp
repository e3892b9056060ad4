#include "tables/Members.h"

#include <boost/json/serialize.hpp>

namespace Cli {

namespace json = boost::json;

namespace {

json::value const * known( Object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   return value && !value->is_null() ? value : nullptr;
}

}  // namespace

std::string text( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   if( !value ) return "";
   return value->is_string() ? value->get_string().c_str() : json::serialize( *value );
}

std::optional<double> number( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   return value && value->is_number() ? std::optional( value->to_number<double>() ) : std::nullopt;
}

bool yes( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   return value && value->is_bool() && value->get_bool();
}

Object const * inner( Object const & object, char const * member ) {
   auto const * const value = known( object, member );
   return value ? value->if_object() : nullptr;
}

json::array const & list( Object const & object, char const * member ) {
   static json::array const none;
   auto const * const value = known( object, member );
   return value && value->is_array() ? value->get_array() : none;
}

std::string namesText( Object const & object, char const * member ) {
   std::string names;
   for( auto const & name : list( object, member ) ) {
      if( name.is_string() ) names.append( names.empty() ? "" : ", " ).append( name.get_string() );
   }
   return names;
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
