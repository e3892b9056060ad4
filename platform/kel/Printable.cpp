#include "kel/Printable.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "kel/Utf8.h"

namespace Kel {

namespace {

bool isPlainAscii( char c ) { return c >= 0x20 && c < 0x7f; }

// Of one valid sequence.
char32_t codePoint( std::string_view sequence ) {
   auto const lead = static_cast<unsigned char>( sequence.front() );
   // The lead of a sequence of n bytes has n + 1 bits that say so, that of a single byte has one.
   char32_t code = sequence.size() == 1 ? lead : lead & ( 0x7fU >> sequence.size() );
   for( char const c : sequence.substr( 1 ) ) code = ( code << 6 ) | ( static_cast<unsigned char>( c ) & 0x3fU );
   return code;
}

bool isHarmless( char32_t code ) {
   bool const control = code < 0x20 || ( code >= 0x7f && code < 0xa0 );
   // Line and paragraph separator, embeddings and overrides; isolates.
   bool const turnsLines = ( code >= 0x2028 && code <= 0x202e ) || ( code >= 0x2066 && code <= 0x2069 );
   return !control && !turnsLines;
}

std::string escaped( char const * format, unsigned number ) {
   std::array<char, 16> text{};
   std::snprintf( text.data(), text.size(), format, number );
   return text.data();
}

std::string escapedCodePoint( char32_t code ) {
   switch( code ) {
      case '\n': return "\\n";
      case '\r': return "\\r";
      case '\t': return "\\t";
      default: return escaped( "\\u%04x", static_cast<unsigned>( code ) );
   }
}

std::string printableBut( std::string_view text, std::string_view kept ) {
   auto const stays = [&]( char c ) { return isPlainAscii( c ) || kept.find( c ) != std::string_view::npos; };
   std::string out;
   out.reserve( text.size() );
   while( true ) {
      auto const plain = static_cast<std::size_t>( std::find_if_not( text.begin(), text.end(), stays ) - text.begin() );
      out += text.substr( 0, plain );
      text.remove_prefix( plain );
      if( text.empty() ) return out;
      std::size_t const length = sequenceLength( text );
      // After a bad byte only that one is passed over: the next may begin a valid sequence.
      std::string_view const character = text.substr( 0, std::max<std::size_t>( length, 1 ) );
      if( length == 0 ) {
         out += escaped( "\\x%02x", static_cast<unsigned char>( character.front() ) );
      } else if( isHarmless( codePoint( character ) ) ) {
         out += character;
      } else {
         out += escapedCodePoint( codePoint( character ) );
      }
      text.remove_prefix( character.size() );
   }
}

}  // namespace

std::string printable( std::string_view text ) { return printableBut( text, "" ); }
std::string printableLines( std::string_view text ) { return printableBut( text, "\n\t" ); }

}  // namespace Kel
