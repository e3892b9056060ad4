#include "kel/Value.h"

#include <charconv>
#include <cmath>

namespace Kel {

namespace {

// The whole number from 0 on that v holds, if it holds one. A double counts when it is whole and below 2^53: from there
// on it stands for several whole numbers, and nobody knows which was meant.
std::optional<uint64_t> wholeUnsigned( Value const & v ) {
   if( auto const * u = v.as<uint64_t>() ) return *u;
   if( auto const * s = v.as<int64_t>(); s && *s >= 0 ) return static_cast<uint64_t>( *s );
   auto const * d = v.as<double>();
   if( d && *d >= 0 && *d < 0x1p53 && std::trunc( *d ) == *d ) return static_cast<uint64_t>( *d );
   return std::nullopt;
}

}  // namespace

char const * Value::kind() const {
   // In the order of Content's alternatives
   static char const * const kinds[] = { "null",     "a boolean", "a number",  "a number",
                                         "a number", "a string",  "an object", "a list" };
   return kinds[content_.index()];
}

void wrongType( char const * wanted, Value const & found ) {
   throw AttributeError( std::string( "wants " ) + wanted + ", not " + found.kind() );
}

void wrongKey( char const * wanted, std::string_view found ) {
   throw AttributeError( "the key \"" + std::string( found ) + "\" is not " + wanted );
}

uint64_t unsignedFromValue( Value const & v, uint64_t max ) {
   auto const number = wholeUnsigned( v );
   if( !number || *number > max ) wrongType( ( "a whole number from 0 to " + std::to_string( max ) ).c_str(), v );
   return *number;
}

int64_t signedFromValue( Value const & v, int64_t min, int64_t max ) {
   auto const * s = v.as<int64_t>();
   auto const u = wholeUnsigned( v );
   // Negative numbers only as signed integers: a negative double is refused, also a whole one.
   bool const fits = ( s && *s >= min && *s <= max ) || ( u && max >= 0 && *u <= static_cast<uint64_t>( max ) );
   if( !fits ) wrongType( "a whole number in the range of its type", v );
   return s ? *s : static_cast<int64_t>( *u );
}

double doubleFromValue( Value const & v ) {
   if( auto const * d = v.as<double>() ) return *d;
   // Integers are taken too, although great ones lose digits: who writes 10 for a rate means 10.0.
   if( auto const * u = v.as<uint64_t>() ) return static_cast<double>( *u );
   if( auto const * s = v.as<int64_t>() ) return static_cast<double>( *s );
   wrongType( "a number", v );
}

uint64_t unsignedKeyFromText( std::string_view text, uint64_t max ) {
   uint64_t number = 0;
   // The whole text must be the number: "12x" is no key, and must not find entry 12.
   auto const [end, error] = std::from_chars( text.data(), text.data() + text.size(), number );
   if( error != std::errc() || end != text.data() + text.size() || number > max ) {
      wrongKey( ( "a number from 0 to " + std::to_string( max ) ).c_str(), text );
   }
   return number;
}

}  // namespace Kel
