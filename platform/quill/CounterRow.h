// One row of a counter table as it lies in shared memory, and how it is written while others read it.
//
// The layout is a promise to programs that know nothing of this struct (quill/CounterTable.h describes it). What a
// refresh reads and writes of a row lies in its first 48 bytes, which never cross a line of the caches.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace KelQuill {

struct CounterRow {
   static constexpr std::size_t nameMax = 63;  // bytes
   // Of an octet counter that has no value, as Brim::MaybeU63::fromWord() reads it.
   static constexpr uint64_t noValueBit = uint64_t{ 1 } << 63;

   std::atomic<uint64_t> sequence;
   std::atomic<uint64_t> inUse;
   std::atomic<uint64_t> inOctets;
   std::atomic<uint64_t> outOctets;
   std::atomic<double> readTime;  // s
   std::atomic<uint64_t> restarts;
   std::atomic<uint64_t> name[( nameMax + 1 ) / sizeof( uint64_t )];
   std::byte reserved[16];

   class Writing;

   // Single stores may be relaxed and atomic all the same: a reader copies while they happen, finds out by the sequence
   // afterwards, and a plain store would be a data race until then.
   void readIs( uint64_t in, uint64_t out, double time ) {
      inOctets.store( in, std::memory_order_relaxed );
      outOctets.store( out, std::memory_order_relaxed );
      readTime.store( time, std::memory_order_relaxed );
   }
   // Whether these go on from a read that there was: neither is lower, or has no value.
   [[nodiscard]] bool goesOn( uint64_t in, uint64_t out ) const {
      return in >= inOctets.load( std::memory_order_relaxed ) && out >= outOctets.load( std::memory_order_relaxed ) &&
             ( in | out ) < noValueBit && readTime.load( std::memory_order_relaxed ) != 0;
   }
};

// Keeps readers from a row while it lives.
class CounterRow::Writing {
 public:
   explicit Writing( CounterRow & row ) : row_( row ), before_( row.sequence.load( std::memory_order_relaxed ) ) {
      // Plain load and store in place of an increment: a table has one writer.
      row_.sequence.store( before_ + 1, std::memory_order_relaxed );
      // No store to the row may be seen before the odd sequence. A releasing store would hold back only those ahead of
      // it.
      std::atomic_thread_fence( std::memory_order_release );
   }
   Writing( Writing const & ) = delete;
   Writing & operator=( Writing const & ) = delete;
   ~Writing() { row_.sequence.store( before_ + 2, std::memory_order_release ); }

 private:
   CounterRow & row_;
   uint64_t const before_;
};

}  // namespace KelQuill
