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
void appendNumber( std::string & out, Number number ) {
   std::array<char, 32> text{};  // the longest text is that of a double, 24 characters
   auto const [end, error] = std::to_chars( text.data(), text.data() + text.size(), number );
   if( error == std::errc() ) {
      out.append( text.data(), end );
   } else {
      out += "null";
   }
}

// Into the one text, as a piece for each part of a large value would be copied once for each level above it.
struct Writer {
   void operator()( std::monostate ) const { out += "null"; }
   void operator()( bool b ) const { out += b ? "true" : "false"; }
   void operator()( int64_t n ) const { appendNumber( out, n ); }
   void operator()( uint64_t n ) const { appendNumber( out, n ); }
   void operator()( double d ) const {
      if( !std::isfinite( d ) ) return ( *this )( std::monostate() );
      appendNumber( out, d );
   }
   void operator()( std::string const & s ) const { appendJson( out, std::string_view( s ) ); }
   void operator()( Value::Object const & object ) const {
      out += '{';
      for( auto const & [name, member] : object ) {
         if( &name != &object.front().first ) out += ", ";
         appendJson( out, std::string_view( name ) );
         out += ": ";
         appendJson( out, member );
      }
      out += '}';
   }
   void operator()( Value::List const & list ) const {
      out += '[';
      for( auto const & element : list ) {
         if( &element != &list.front() ) out += ", ";
         appendJson( out, element );
      }
      out += ']';
   }
   std::string & out;
};

}  // namespace

void appendJson( std::string & out, Value const & value ) { std::visit( Writer{ out }, value.content() ); }

std::string toJson( Value const & value ) {
   std::string out;
   appendJson( out, value );
   return out;
}

std::string toJson( std::string_view text ) {
   std::string out;
   appendJson( out, text );
   return out;
}

void appendJson( std::string & out, std::string_view text ) {
   out += '"';
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
   out += '"';
}

}  // namespace Kel
