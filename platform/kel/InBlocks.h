// Memory for objects of which there are thousands, all looked at one after the other: side by side, in the order in
// which they were made, each where its type wants to be aligned.
//
// A device for speed: a class that derives from InBlocks<itself> has its new and delete here, and is otherwise made,
// counted and freed as any other. Declared alignas( 64 ), with what each look needs first, an object takes as few cache
// lines as it can, and the processor fetches the next one's by itself. Blocks grow up to 64 objects; all go when the
// last object has gone. One thread makes and frees. Where an address sanitizer looks on, each object has memory of its
// own. bench/lines counts what it saves (sampleJudged/100).
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <type_traits>

#if defined( __SANITIZE_ADDRESS__ )
#define KEL_OBJECTS_APART 1
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define KEL_OBJECTS_APART 1
#endif
#endif

namespace Kel {

template<class T>
class InBlocks {
 public:
   static void * operator new( std::size_t bytes ) {
#ifdef KEL_OBJECTS_APART
      return ::operator new( bytes, std::align_val_t( alignof( T ) ) );
#else
      // One that derives from T would not fit.
      static_assert( std::is_final_v<T> );
      static_cast<void>( bytes );
      if( !kelFree_ ) kelGrow();
      KelFree * const place = kelFree_;
      kelFree_ = place->next;
      ++kelUsed_;
      return place;
#endif
   }
   static void operator delete( void * object ) {
#ifdef KEL_OBJECTS_APART
      ::operator delete( object, std::align_val_t( alignof( T ) ) );
#else
      kelFree_ = new( object ) KelFree{ kelFree_ };
      if( --kelUsed_ == 0 ) kelRelease();
#endif
   }

 protected:
   InBlocks() = default;

 private:
   // Where there is no object.
   struct KelFree {
      KelFree * next;
   };
   // Follows its objects.
   struct KelBlock {
      KelBlock * former;
      std::byte * begin;
   };

   static void kelGrow() {
      std::size_t const objects = std::clamp<std::size_t>( kelUsed_, 1, 64 );
      auto const memory =
         ::operator new( objects * sizeof( T ) + sizeof( KelBlock ), std::align_val_t( alignof( T ) ) );
      auto * const begin = static_cast<std::byte *>( memory );
      kelBlocks_ = new( begin + objects * sizeof( T ) ) KelBlock{ kelBlocks_, begin };
      // The lowest is taken first.
      for( std::size_t i = objects; i > 0; --i ) kelFree_ = new( begin + ( i - 1 ) * sizeof( T ) ) KelFree{ kelFree_ };
   }
   static void kelRelease() {
      kelFree_ = nullptr;
      while( KelBlock const * const block = kelBlocks_ ) {
         kelBlocks_ = block->former;
         ::operator delete( block->begin, std::align_val_t( alignof( T ) ) );
      }
   }

   // Never destroyed: what lives until the end of the program is freed, if at all, after this.
   static constinit inline KelFree * kelFree_ = nullptr;
   static constinit inline KelBlock * kelBlocks_ = nullptr;
   static constinit inline std::size_t kelUsed_ = 0;
};

}  // namespace Kel

#undef KEL_OBJECTS_APART
