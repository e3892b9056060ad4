// Places for objects of one type, known by number: an object stays where it is, however many come after it.
//
// A device for memory: an allocation for each entry of each small map costs as much as the entry. Places lie in blocks
// of 1, 1, 2, 4, 8, ... of them, so one object takes one small block and many take few large ones; numbers of 4 bytes
// do for links between objects. Given-up places are used again first, and all blocks go when the last object has.
// Neither copies nor moves an object.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "kel/Assert.h"

namespace Kel {

template<class T>
class StablePlaces {
 public:
   static constexpr uint32_t none = UINT32_MAX;

   StablePlaces() = default;
   StablePlaces( StablePlaces const & ) = delete;
   StablePlaces & operator=( StablePlaces const & ) = delete;
   // Objects that are left are not destroyed: whoever knows their numbers has done so.
   ~StablePlaces() { release(); }

   [[nodiscard]] T & operator[]( uint32_t number ) const {
      return *std::launder( reinterpret_cast<T *>( place( number ).bytes ) );
   }

   template<class... Args>
   uint32_t make( Args &&... args ) {
      // Taken only when the object is there: its constructor may throw.
      if( free_ != none ) {
         uint32_t const number = free_;
         Place & taken = place( number );
         uint32_t const next = taken.nextFree;
         new( taken.bytes ) T{ std::forward<Args>( args )... };
         free_ = next;
         return number;
      }
      if( used_ == capacity() ) grow();
      new( place( used_ ).bytes ) T{ std::forward<Args>( args )... };
      return used_++;
   }
   void end( uint32_t number ) {
      ( *this )[number].~T();
      Place & given = place( number );
      new( &given.nextFree ) uint32_t( free_ );
      free_ = number;
   }
   // All objects have ended.
   void release() {
      if( !store_ ) return;
      if( blocks_ == 1 ) {
         delete[] static_cast<Place *>( store_ );
      } else {
         auto * const table = static_cast<Place **>( store_ );
         for( uint32_t i = 0; i < blocks_; ++i ) delete[] table[i];
         delete[] table;
      }
      store_ = nullptr;
      used_ = 0;
      blocks_ = 0;
      free_ = none;
   }

 private:
   union Place {
      uint32_t nextFree;
      alignas( T ) std::byte bytes[sizeof( T )];
   };

   [[nodiscard]] uint32_t capacity() const { return blocks_ == 0 ? 0 : uint32_t{ 1 } << ( blocks_ - 1 ); }

   [[nodiscard]] Place & place( uint32_t number ) const {
      // One block needs no table.
      if( blocks_ == 1 ) return *static_cast<Place *>( store_ );
      auto const block = static_cast<uint32_t>( std::bit_width( number ) );
      uint32_t const first = block == 0 ? 0 : uint32_t{ 1 } << ( block - 1 );
      return static_cast<Place **>( store_ )[block][number - first];
   }

   void grow() {
      KEL_ASSERT( capacity() < uint32_t{ 1 } << 25 );
      auto block = std::make_unique<Place[]>( blocks_ < 2 ? 1 : capacity() );
      if( blocks_ == 0 ) {
         store_ = block.release();
      } else {
         auto table = std::make_unique<Place *[]>( blocks_ + 1 );
         if( blocks_ == 1 ) {
            table[0] = static_cast<Place *>( store_ );
         } else {
            std::unique_ptr<Place *[]> const former( static_cast<Place **>( store_ ) );
            std::copy_n( former.get(), blocks_, table.get() );
         }
         table[blocks_] = block.release();
         store_ = table.release();
      }
      ++blocks_;
   }

   void * store_ = nullptr;  // the only block, or the table of all
   uint32_t used_ : 26 = 0;  // places that ever had an object
   uint32_t blocks_ : 6 = 0;
   uint32_t free_ = none;
};

}  // namespace Kel
