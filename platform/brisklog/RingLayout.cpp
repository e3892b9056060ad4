#include "brisklog/RingLayout.h"

#include <algorithm>
#include <charconv>
#include <fstream>

#include "kel/Trace.h"

namespace Brisklog {

namespace {

std::string wordText( ArgType type, uint64_t word ) {
   if( type == ArgType::signedWord ) return std::to_string( static_cast<int64_t>( word ) );
   if( type == ArgType::unsignedWord ) return std::to_string( word );
   return Kel::doubleText( std::bit_cast<double>( word ) );
}

// Takes one argument off the front of `args` and appends it to `text`; false where it is not whole.
bool appendArg( std::string & text, ArgType type, std::span<std::byte const> & args ) {
   if( args.size() < sizeof( uint64_t ) ) return false;
   std::size_t bytes = sizeof( uint64_t );
   if( type == ArgType::text ) {
      auto const mark = std::to_integer<unsigned>( args[0] );
      std::size_t const length = mark & ~unsigned( TextSlot::cutMark );
      bytes = TextSlot::bytesAfter( args[0] );
      // Both: the whole of an impossible length may come out as 0 bytes, which are always there.
      if( length > textBytesMax || bytes > args.size() ) return false;
      text.append( reinterpret_cast<char const *>( args.data() + 1 ), length );
      if( mark & TextSlot::cutMark ) text += "...";
   } else {
      uint64_t word = 0;
      std::memcpy( &word, args.data(), sizeof word );
      text += wordText( type, word );
   }
   args = args.subspan( bytes );
   return true;
}

}  // namespace

// The first half of the boot's UUID: 64 bits, nearly all random, are enough to tell boots apart. What cannot be read
// leaves 0.
uint64_t presentBoot() {
   std::string uuid;
   std::ifstream( "/proc/sys/kernel/random/boot_id" ) >> uuid;
   std::erase( uuid, '-' );
   uint64_t boot = 0;
   std::from_chars( uuid.data(), uuid.data() + std::min<std::size_t>( uuid.size(), 16 ), boot, 16 );
   return boot;
}

std::optional<std::string> messageText( Format const & format, std::span<std::byte const> args ) {
   std::string text;
   std::size_t from = 0;
   for( ArgType const type : format.types ) {
      std::size_t const slot = format.text.find( "{}", from );
      if( slot == std::string_view::npos ) return std::nullopt;  // a table from a file may say anything
      text += format.text.substr( from, slot - from );
      if( !appendArg( text, type, args ) ) return std::nullopt;
      from = slot + 2;
   }
   text += format.text.substr( from );
   return text;
}

}  // namespace Brisklog
