#include "kel/Json.h"

#include <array>
#include <charconv>
#include <cmath>

#include "kel/Utf8.h"

namespace Kel {

namespace {

void appendEscaped( std::string & out, char c ) {
   switch( c ) {
      case '"': out += "\\\""; return;
      case '\\': out += "\\\\"; return;
      case '\n': out += "\\n"; return;
      case '\r': out += "\\r"; return;
      case '\t': out += "\\t"; return;
      default: break;
   }
   if( static_cast<unsigned char>( c ) >= 0x20 ) {
      out += c;
      return;
   }
   static char const hex[] = "0123456789abcdef";
   out += "\\u00";
   out += hex[( c >> 4 ) & 0xf];
   out += hex[c & 0xf];
}

template<class Number>
std::string numberText( Number number ) {
   std::array<char, 32> text{};  // the longest text is that of a double, 24 characters
   auto const [end, error] = std::to_chars( text.data(), text.data() + text.size(), number );
   return error == std::errc() ? std::string( text.data(), end ) : "null";
}

struct Writer {
   std::string operator()( std::monostate ) const { return "null"; }
   std::string operator()( bool b ) const { return b ? "true" : "false"; }
   std::string operator()( int64_t n ) const { return numberText( n ); }
   std::string operator()( uint64_t n ) const { return numberText( n ); }
   std::string operator()( double d ) const { return std::isfinite( d ) ? numberText( d ) : "null"; }
   std::string operator()( std::string const & s ) const { return toJson( std::string_view( s ) ); }
   std::string operator()( Value::Object const & object ) const {
      std::string out = "{";
      for( auto const & [name, member] : object ) {
         if( out.size() > 1 ) out += ", ";
         out += toJson( std::string_view( name ) ) + ": " + toJson( member );
      }
      return out + "}";
   }
   std::string operator()( Value::List const & list ) const {
      std::string out = "[";
      for( auto const & element : list ) {
         if( out.size() > 1 ) out += ", ";
         out += toJson( element );
      }
      return out + "]";
   }
};

}  // namespace

std::string toJson( Value const & value ) { return std::visit( Writer{}, value.content() ); }

std::string toJson( std::string_view text ) {
   std::string out = "\"";
   while( !text.empty() ) {
      std::size_t const length = sequenceLength( text );
      if( length == 0 ) {
         out += "\xef\xbf\xbd";
      } else if( length == 1 ) {
         appendEscaped( out, text.front() );
      } else {
         out += text.substr( 0, length );
      }
      // After a bad byte only that one is left out: the next may begin a valid sequence.
      text.remove_prefix( length == 0 ? 1 : length );
   }
   return out + "\"";
}

}  // namespace Kel
