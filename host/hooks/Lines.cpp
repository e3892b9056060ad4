#include "hooks/Lines.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace Host {

namespace {

constexpr std::size_t longestLine = 1000;

bool continues( char c ) { return ( static_cast<unsigned char>( c ) & 0xC0U ) == 0x80U; }

// How many bytes from `at` make one character that may be shown; 0 when none does.
std::size_t shownLength( std::string_view text, std::size_t at ) {
   auto const first = static_cast<unsigned char>( text[at] );
   if( first < 0x80 ) return ( first >= 0x20 && first != 0x7F ) || first == '\t' ? 1 : 0;
   std::size_t const length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
   if( first < 0xC2 || first > 0xF4 || at + length > text.size() ) return 0;
   std::uint32_t code = first & ( 0x7FU >> length );
   for( std::size_t i = 1; i < length; ++i ) {
      if( !continues( text[at + i] ) ) return 0;
      code = code << 6U | ( static_cast<unsigned char>( text[at + i] ) & 0x3FU );
   }
   constexpr std::array<std::uint32_t, 5> least{ 0, 0, 0xA0, 0x800, 0x10000 };  // below lie control characters
   bool const surrogate = code >= 0xD800 && code < 0xE000;
   return code >= least[length] && code < 0x110000 && !surrogate ? length : 0;
}

std::string shown( std::string_view text ) {
   std::string result;
   for( std::size_t at = 0; at < text.size(); ) {
      if( auto const length = shownLength( text, at ) ) {
         result += text.substr( at, length );
         at += length;
         continue;
      }
      std::array<char, 5> escape{};
      std::snprintf( escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>( text[at++] ) );
      result += escape.data();
   }
   return result;
}

}  // namespace

void Lines::take( std::string_view bytes ) {
   if( left_ == 0 ) return;
   auto const taken = bytes.substr( 0, left_ );
   for( char const c : taken ) {
      if( c == '\n' || begun_.size() == longestLine ) end();
      if( c != '\n' ) begun_ += c;
   }
   left_ -= taken.size();
   if( left_ > 0 ) return;
   end();
   last_.clear();
   line_( "the rest of its output is dropped" );
}

void Lines::end() {
   if( begun_.empty() ) return;
   last_ = shown( begun_ );
   begun_.clear();
   line_( last_ );
}

}  // namespace Host
