#include "kel/Json.h"

#include <array>
#include <charconv>
#include <cmath>

namespace Kel {

namespace {

// The length of the valid UTF-8 sequence at the start of `text`, 0 for an invalid one (RFC 3629).
std::size_t sequenceLength( std::string_view text ) {
   auto const byte = [&]( std::size_t i ) { return static_cast<unsigned char>( text[i] ); };
   unsigned char const lead = byte( 0 );
   // 0x80 to 0xbf only continue a sequence, 0xc0 and 0xc1 would repeat what one byte says, and from 0xf5 on a sequence
   // would be beyond U+10FFFF.
   std::size_t const length = lead < 0x80   ? 1
                              : lead < 0xc2 ? 0
                              : lead < 0xe0 ? 2
                              : lead < 0xf0 ? 3
                              : lead < 0xf5 ? 4
                                            : 0;
   if( length < 2 || text.size() < length ) return length == 1 ? 1 : 0;
   for( std::size_t i = 1; i < length; ++i ) {
      if( ( byte( i ) & 0xc0 ) != 0x80 ) return 0;
   }
   bool const overlong = ( lead == 0xe0 && byte( 1 ) < 0xa0 ) || ( lead == 0xf0 && byte( 1 ) < 0x90 );
   bool const surrogate = lead == 0xed && byte( 1 ) >= 0xa0;
   bool const tooLarge = lead == 0xf4 && byte( 1 ) >= 0x90;
   return overlong || surrogate || tooLarge ? 0 : length;
}

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
