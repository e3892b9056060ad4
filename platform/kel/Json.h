// A Value as JSON text, on one line. Doubles print in the shortest form that reads back the same, 64-bit integers in
// full; a double that JSON cannot say (infinite, not a number) prints as null.
#pragma once

#include <string>
#include <string_view>

#include "kel/Value.h"

namespace Kel {

[[nodiscard]] std::string toJson( Value const & value );
void appendJson( std::string & out, Value const & value );
// A quoted and escaped JSON string (RFC 8259); bytes that are no valid UTF-8 become U+FFFD.
[[nodiscard]] std::string toJson( std::string_view text );
void appendJson( std::string & out, std::string_view text );

// Value of anything that has traits, for building answers: object( { { "unit", value( name ) }, ... } ).
template<class T>
[[nodiscard]] Value value( T const & v ) {
   return ValueTraits<T>::toValue( v );
}
[[nodiscard]] inline Value value( std::string v ) { return Value( Value::Content( std::move( v ) ) ); }
[[nodiscard]] inline Value value( char const * v ) { return value( std::string( v ) ); }
[[nodiscard]] inline Value value( Value::Object v ) { return Value( Value::Content( std::move( v ) ) ); }

}  // namespace Kel
