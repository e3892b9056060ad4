#include "orders/Member.h"

#include <boost/json/parse.hpp>
#include <cmath>

namespace Fleet {

namespace json = boost::json;

namespace {

constexpr std::size_t mostBytes = 1 << 20;

[[noreturn]] void refuse( std::string const & place, char const * what ) { throw BadDocument( place + what ); }

}  // namespace

json::value const & Object::member( std::string_view name ) const {
   json::value const * const found = members.if_contains( name );
   if( !found ) refuse( placeOf( name ), " is missing" );
   return *found;
}

std::string Object::text( std::string_view name ) const {
   json::value const & value = member( name );
   if( !value.is_string() ) refuse( placeOf( name ), " is no text" );
   return std::string( value.get_string() );
}

double Object::number( std::string_view name ) const {
   json::value const & value = member( name );
   if( !value.is_number() ) refuse( placeOf( name ), " is no number" );
   auto const number = value.to_number<double>();
   if( !std::isfinite( number ) ) refuse( placeOf( name ), " is not finite" );
   return number;
}

std::optional<double> Object::numberIfAny( std::string_view name ) const {
   json::value const * const found = members.if_contains( name );
   if( !found || found->is_null() ) return std::nullopt;
   return number( name );
}

uint64_t Object::whole( std::string_view name ) const {
   json::value const & value = member( name );
   boost::system::error_code fault;
   auto const number = value.is_number() ? value.to_number<uint64_t>( fault ) : 0;
   if( !value.is_number() || fault ) refuse( placeOf( name ), " is no whole number" );
   return number;
}

bool Object::flag( std::string_view name ) const {
   json::value const & value = member( name );
   if( !value.is_bool() ) refuse( placeOf( name ), " is neither true nor false" );
   return value.get_bool();
}

Object Object::object( std::string_view name ) const { return objectIn( member( name ), placeOf( name ) ); }

json::array const & Object::list( std::string_view name ) const {
   json::value const & value = member( name );
   if( !value.is_array() ) refuse( placeOf( name ), " is no list" );
   return value.get_array();
}

json::value documentIn( std::string_view text, std::string const & at ) {
   if( text.size() > mostBytes ) refuse( at, " is longer than a megabyte" );
   boost::system::error_code fault;
   json::value document = json::parse( text, fault );
   if( fault ) refuse( at, ( " is no JSON: " + fault.message() ).c_str() );
   return document;
}

Object objectIn( json::value const & document, std::string at ) {
   if( !document.is_object() ) refuse( at, " is no object" );
   return { document.get_object(), std::move( at ) };
}

}  // namespace Fleet
