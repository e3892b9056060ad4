// Walks through a list whose elements lie anywhere in memory, and fetches what the next ones are going to touch while
// the present one is served.
//
// A device for speed. What is looked at once a second finds nothing of itself in the caches, and served one after the
// other each element would wait for memory as often as it is many lines. An element says in fetch( n ) what of it lies
// n steps away: itself is the first, the places of its parts stand in itself, and so on. The steps of one element are
// asked for with others served in between, so that each finds what the one before it has asked for. To fetch changes
// nothing and never fails, whatever is there. bench/sample_bench measures what it saves (coldSampleJudged).
#pragma once

#include <cstddef>

namespace Kel {

// What lies in `bytes` from `place` on.
inline void fetch( void const * place, std::size_t bytes ) {
   constexpr std::size_t line = 64;
   auto const * const begin = static_cast<std::byte const *>( place );
   for( std::size_t i = 0; i < bytes; i += line ) __builtin_prefetch( begin + i );
   // It may begin in the middle of its first line.
   if( bytes > 0 ) __builtin_prefetch( begin + bytes - 1 );
}
template<class T>
void fetch( T const & object ) {
   fetch( &object, sizeof object );
}

// `serve` is called with each element in their order, and must not make the list longer or shorter.
template<std::size_t steps, class List, class Serve>
void forEachFetched( List & list, Serve const & serve ) {
   constexpr std::size_t apart = 4;  // elements served between two steps
   constexpr std::size_t ahead = steps * apart;
   std::size_t const size = list.size();
   for( std::size_t i = 0; i < size + ahead; ++i ) {
      for( std::size_t step = 0; step < steps; ++step ) {
         std::size_t const place = i - step * apart;  // beyond any size before the first
         if( place < size ) list[place].fetch( step );
      }
      if( i >= ahead ) serve( list[i - ahead] );
   }
}

}  // namespace Kel
