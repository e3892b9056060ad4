// A text that is kept in the ring's own layout, so that a message copies it word by word, whatever its length.
//
//    | length | characters ... | zeros to the end of the last word |
//
// For names that stand in many messages and never change, as those of interfaces. What it saves is the difference that
// ring_bench shows between ringMessage and ringMessageOfView. A value of two words, to be copied freely while the
// memory lasts.
#pragma once

#include <memory_resource>

#include "brisklog/Arg.h"

namespace Brisklog {

class KeptText {
 public:
   KeptText() = default;  // the empty text
   // Takes what it needs from `memory`, once.
   [[nodiscard]] static KeptText copyOf( std::string_view text, std::pmr::memory_resource & memory );

   // The whole text, also where a message cuts it.
   [[nodiscard]] std::string_view view() const { return { reinterpret_cast<char const *>( words_ + 1 ), size_ }; }

   // As an argument in the ring
   [[nodiscard]] uint32_t bytes() const { return bytesInRing_; }
   [[gnu::always_inline]] void put( std::byte * to ) const {
      // There is always a first word, the one with the length, so its copy waits for no comparison.
      uint32_t at = 0;
      do {
         std::memcpy( to + at, words_ + at, sizeof( uint64_t ) );
         at += sizeof( uint64_t );
      } while( at < bytesInRing_ );
   }

 private:
   alignas( uint64_t ) static constexpr std::byte noText[sizeof( uint64_t )]{};

   std::byte const * words_ = noText;
   uint32_t size_ = 0;
   uint32_t bytesInRing_ = sizeof noText;
};

template<>
struct Arg<KeptText> : TextArg {
   static KeptText text( KeptText const & value ) { return value; }
};

}  // namespace Brisklog
