// A table of interface counters in shared memory, written by one process and readable by any.
//
// Layout, in the byte order of the machine, offsets in bytes:
//
//    header   0 magic "KQCTRS2\0", its digit the version
//             8 row size (uint32)   12 capacity (uint32)   16 rows (uint64)
//             24 generation (uint32), another whenever a row is taken into use or given up
//             28 to 63 reserved
//    rows     from 64 on, one each `row size`:
//             0 sequence (uint64)   8 in use (uint64, 0 or 1)
//             16 input octets   24 output octets (both uint64, top bit: no value)
//             32 read time (double, seconds; 0: never)   40 restarts (uint64)
//             48 name (64 bytes, ended by a zero)   112 to 127 reserved
//
// A row is guarded by its sequence, which is odd while the row is written: a reader copies the row and keeps the copy
// only if the sequence was even and the same before and after. A row keeps its place for as long as it is in use; given
// up, it may come back under another name, so whoever looks for an interface by name reads name and counters under one
// sequence.
//
// The read time is that of the turn in which the counters were last read from their source for sure. A read that fails
// or passes the interface by moves neither it nor the octets: who wants to know whether nothing has flowed looks at the
// time, because octets that stand still may only be unread. Restarts is another number, and a higher one, after the
// source's counters have started again or the interface has gone and come back: what was counted between the reads
// before and after is not known in full then.
//
// A writer that starts anew puts another file in the place of the old one, which stays as it is for those who still
// have it mapped. The file is sparse: its full capacity takes memory only as it is used.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "brim/MaybeU63.h"
#include "quill/CounterRow.h"

namespace KelQuill {

// A file that is no table, or cannot be made or mapped, or takes no further row; says which and why.
class TableError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class CounterTable {
 public:
   static constexpr std::size_t nameMax = CounterRow::nameMax;  // bytes
   static constexpr uint32_t capacityMax = 1u << 20;

   using Row = CounterRow;

   // What a row said at one moment: what a sample takes of it, and all of it.
   struct Counters {
      Brim::MaybeU63 inOctets;
      Brim::MaybeU63 outOctets;
      double readTime = 0;  // s, on the writer's clock; 0: never read
   };
   struct LastRead : Counters {
      uint64_t restarts = 0;
   };
   struct Entry {
      std::string name;
      LastRead counters;
   };

   // What a read of the source brought.
   struct Read {
      Brim::MaybeU63 inOctets;
      Brim::MaybeU63 outOctets;
      bool restarted = false;  // the source's counters have started again since the read before
   };

   // A new table: in the named file, which is replaced, or in anonymous memory where the path is empty.
   static std::unique_ptr<CounterTable> create( std::string const & path, uint32_t capacity = capacityMax );
   // An existing one of another process.
   static std::unique_ptr<CounterTable const> openReadOnly( std::string const & path );
   CounterTable( CounterTable const & ) = delete;
   CounterTable & operator=( CounterTable const & ) = delete;
   ~CounterTable();

   [[nodiscard]] uint32_t rows() const;  // used so far; some of them may be free again
   [[nodiscard]] uint32_t capacity() const { return capacity_; }
   [[nodiscard]] uint32_t generation() const;

   [[nodiscard]] Row const & row( uint32_t index ) const { return rowsBegin_[index]; }
   // Copies what the row says. False while the row is being written: `found` is then not to be used.
   [[nodiscard]] static bool readOnce( Row const & row, Counters & found ) {
      uint64_t const before = row.sequence.load( std::memory_order_acquire );
      found = countersOf( row );
      // The copy must be complete before the sequence is read again. An acquiring load would hold back only what
      // follows it.
      std::atomic_thread_fence( std::memory_order_acquire );
      return before % 2 == 0 && row.sequence.load( std::memory_order_relaxed ) == before;
   }
   // The same, tried again for as long as a living writer may take. None when the row stays half written, as a writer
   // leaves it that died there.
   [[nodiscard]] static std::optional<LastRead> read( Row const & row );
   // All of it at one go; false as above.
   [[nodiscard]] static bool readOnce( Row const & row, LastRead & found ) {
      uint64_t const before = row.sequence.load( std::memory_order_acquire );
      found = lastReadOf( row );
      std::atomic_thread_fence( std::memory_order_acquire );
      return before % 2 == 0 && row.sequence.load( std::memory_order_relaxed ) == before;
   }
   // Name and counters as they belong together; none also when the row is not in use.
   [[nodiscard]] std::optional<Entry> entry( uint32_t index ) const;

   // The writer's side.

   // Takes a row that is not in use into use, counters never read. `index` is at most rows(). Throws TableError for a
   // name that is too long, for a table that is full and when there is no memory.
   void rowIs( uint32_t index, std::string_view name, uint64_t restarts = 0 );
   void rowDel( uint32_t index );
   // `time` is when it was read, in seconds and above 0. A restart counts where there is an earlier read to compare
   // with.
   void readIs( uint32_t index, Read const & read, double time );
   // The same for what most reads bring: octets that have grown since another read. False, and nothing written, for any
   // other: the row was never read, an octet counter is below what it was, or above 2^63 - 1.
   bool grewTo( uint32_t index, uint64_t inOctets, uint64_t outOctets, double time ) {
      Row & row = rowsBegin_[index];
      if( !row.goesOn( inOctets, outOctets ) ) return false;
      Row::Writing const writing( row );
      row.readIs( inOctets, outOctets, time );
      return true;
   }

 private:
   static Counters countersOf( Row const & row ) {
      return { Brim::MaybeU63::fromWord( row.inOctets.load( std::memory_order_relaxed ) ),
               Brim::MaybeU63::fromWord( row.outOctets.load( std::memory_order_relaxed ) ),
               row.readTime.load( std::memory_order_relaxed ) };
   }

   static LastRead lastReadOf( Row const & row ) {
      return { countersOf( row ), row.restarts.load( std::memory_order_relaxed ) };
   }

   struct Header;
   struct File;

   CounterTable( std::unique_ptr<File const> file, std::byte * memory, std::size_t bytes );
   static std::unique_ptr<CounterTable> created( std::unique_ptr<File const> file, uint32_t capacity );
   static std::unique_ptr<CounterTable> mapped( std::unique_ptr<File const> file, std::size_t bytes, bool writable );
   void memoryIs( uint32_t index );
   void generationInc();

   std::unique_ptr<File const> const file_;
   std::byte * const memory_;
   std::size_t const bytes_;
   Header * const header_;
   Row * const rowsBegin_;
   uint32_t capacity_ = 0;
};

}  // namespace KelQuill
