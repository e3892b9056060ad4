#include "report/Readable.h"

#include <algorithm>

namespace Report {

namespace {

// In UTF-8 every byte of a character but its first is 10xxxxxx.
bool beginsCharacter( char byte ) { return ( static_cast<unsigned char>( byte ) & 0xc0 ) != 0x80; }

// The byte at which the character of that number begins, the size for the one after the last.
std::size_t byteOf( std::string_view text, std::size_t character ) {
   for( std::size_t i = 0; i < text.size(); ++i ) {
      if( beginsCharacter( text[i] ) && character-- == 0 ) return i;
   }
   return text.size();
}

}  // namespace

std::size_t columns( std::string_view text ) {
   return static_cast<std::size_t>( std::count_if( text.begin(), text.end(), beginsCharacter ) );
}

std::string clipped( std::string_view text, std::size_t most ) {
   std::size_t const all = columns( text );
   if( all <= most ) return std::string( text );
   // One column is for the ellipsis; where the rest is odd the beginning gets one more.
   std::size_t const atEnd = ( most - 1 ) / 2;
   std::string shorter( text.substr( 0, byteOf( text, most - 1 - atEnd ) ) );
   return shorter.append( "…" ).append( text.substr( byteOf( text, all - atEnd ) ) );
}

}  // namespace Report
