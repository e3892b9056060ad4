#include "report/Html.h"

#include "kel/Utf8.h"
#include "report/Readable.h"
#include "report/Svg.h"

namespace Report {

namespace {

// What a page must not show. Beyond ASCII, HTML forbids U+0080 to U+009F, and U+FFFE and U+FFFF at the end of each
// plane.
bool forbidden( std::string_view character ) {
   if( character == "\x7f" ) return true;
   if( character.size() == 2 ) return character[0] == '\xc2' && static_cast<unsigned char>( character[1] ) < 0xa0;
   if( character.size() < 3 ) return false;
   // U+202A to U+202E and U+2066 to U+2069 turn the direction of writing, so that a text reads as another.
   if( character >= "\u202a" && character <= "\u202e" ) return true;
   if( character >= "\u2066" && character <= "\u2069" ) return true;
   std::string_view const end = character.substr( character.size() - 2 );
   bool const lastTwoOfPlane = end == "\xbf\xbe" || end == "\xbf\xbf";
   // In three bytes U+FFFE begins with 0xef. In four the second byte ends in 1111 where the plane's last block is.
   if( character.size() == 3 ) return lastTwoOfPlane && character[0] == '\xef';
   return lastTwoOfPlane && ( static_cast<unsigned char>( character[1] ) & 0x0f ) == 0x0f;
}

}  // namespace

std::string escapedHtml( std::string_view text ) {
   std::string clean;
   while( !text.empty() ) {
      std::size_t const length = Kel::sequenceLength( text );
      // After a bad byte only that one is left out: the next may begin a valid sequence.
      std::size_t const taken = length == 0 ? 1 : length;
      clean += length == 0 || forbidden( text.substr( 0, taken ) ) ? "\uFFFD" : text.substr( 0, taken );
      text.remove_prefix( taken );
   }
   return Svg::escaped( clean );
}

std::string element( std::string_view tag, std::string_view attributes, std::string_view content ) {
   std::string text = "<";
   text.append( tag );
   if( !attributes.empty() ) text.append( " " ).append( attributes );
   return text.append( ">" ).append( content ).append( "</" ).append( tag ).append( ">" );
}

std::string nameHtml( std::string_view name ) {
   constexpr std::size_t longest = 24;  // columns that any table has room for
   return element( "bdi", columns( name ) > longest ? "class=\"n long\"" : "class=\"n\"", escapedHtml( name ) );
}

}  // namespace Report
