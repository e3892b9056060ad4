// Which bytes are UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace Kel {

// The length of the valid UTF-8 sequence at the start of `text`, which is not empty; 0 for an invalid one (RFC 3629).
[[nodiscard]] inline std::size_t sequenceLength( std::string_view text ) {
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

}  // namespace Kel
