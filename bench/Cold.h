// Empties the processor's caches of everything that this program can write, as they are for an agent that samples once
// a second and shares its processor: the next to run finds its data in memory.
//
// A benchmark calls empty() between two iterations, with its timing paused. Every line of every resident page of a
// writable mapping is written back and dropped from all levels: heap, stack, globals, shared memory. Pages that are not
// resident stay so, however large their mapping. Code and constants stay warm, and so do the translations of addresses:
// what is measured so is a lower bound of what a cold turn costs.
#pragma once

#if defined( __x86_64__ )
#include <emmintrin.h>
#endif
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace Bench {

class Cold {
 public:
   Cold() {
      if( pagemap_ < 0 ) std::abort();
   }
   Cold( Cold const & ) = delete;
   Cold & operator=( Cold const & ) = delete;
   ~Cold() { ::close( pagemap_ ); }

   // Mappings may come and go between two calls. Takes a millisecond or so for each MiB that is resident.
   void empty() {
      std::ifstream maps( "/proc/self/maps" );
      for( std::string line; std::getline( maps, line ); ) {
         uintptr_t begin = 0, end = 0;
         char access[5] = {};
         bool const whole = std::sscanf( line.c_str(), "%zx-%zx %4s", &begin, &end, access ) == 3;
         if( whole && access[0] == 'r' && access[1] == 'w' ) drop( begin, end );
      }
      finish();
   }

 private:
   void drop( uintptr_t begin, uintptr_t end ) {
      std::size_t const pages = ( end - begin ) / page_;
      present_.resize( pages );
      // The kernel's word on each page, 8 bytes; the highest bit: it is there (proc(5)).
      auto const got = ::pread( pagemap_, present_.data(), pages * sizeof present_[0],
                                static_cast<off_t>( begin / page_ * sizeof present_[0] ) );
      // Caches that stay warm would make a figure of another kind.
      if( got != static_cast<ssize_t>( pages * sizeof present_[0] ) ) std::abort();
      for( std::size_t i = 0; i < pages; ++i ) {
         if( present_[i] >> 63 ) dropPage( reinterpret_cast<std::byte const *>( begin + i * page_ ) );
      }
   }
   void dropPage( std::byte const * page ) const {
      for( std::size_t i = 0; i < page_; i += 64 ) dropLine( page + i );
   }

#if defined( __x86_64__ )
   static void dropLine( std::byte const * line ) { _mm_clflush( line ); }
   static void finish() { _mm_mfence(); }
#elif defined( __aarch64__ )
   static void dropLine( std::byte const * line ) { asm volatile( "dc civac, %0" ::"r"( line ) : "memory" ); }
   static void finish() { asm volatile( "dsb sy" ::: "memory" ); }
#else
#error "how does this processor drop a line of its caches?"
#endif

   std::size_t const page_ = static_cast<std::size_t>( ::sysconf( _SC_PAGESIZE ) );
   int const pagemap_ = ::open( "/proc/self/pagemap", O_RDONLY | O_CLOEXEC );
   std::vector<uint64_t> present_;  // of the mapping under way; a member for its memory
};

}  // namespace Bench
