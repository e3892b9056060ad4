#include "brisklog/KeptText.h"

#include <algorithm>

namespace Brisklog {

KeptText KeptText::copyOf( std::string_view text, std::pmr::memory_resource & memory ) {
   constexpr std::size_t word = sizeof( uint64_t );
   TextSlot const slot{ text };
   // Of the whole text, although a message carries no more than the slot says: view() gives all of it.
   std::size_t const bytes = ( text.size() / word + 1 ) * word;
   auto * const words = static_cast<std::byte *>( memory.allocate( bytes, word ) );
   std::fill_n( words, bytes, std::byte() );  // put() copies whole words, and the ring may be a file
   words[0] = slot.first();
   std::memcpy( words + 1, text.data(), text.size() );
   KeptText kept;
   kept.words_ = words;
   // A name is far below 4 GiB; with 64 bits a KeptText would be a word longer.
   kept.size_ = static_cast<uint32_t>( text.size() );
   kept.bytesInRing_ = slot.bytes();
   return kept;
}

}  // namespace Brisklog
