// A table of interface counters in shared memory, written by one process and readable by any.
//
// Layout, all fields little-endian as the machine has them, nothing packed; offsets in bytes:
//
//    header   0 magic "KQCTRS1\0"   8 row size (uint32)   12 capacity (uint32)   16 rows used (uint64)   24 reserved
//    rows     from 64 on, one each `row size`:
//             0 sequence (uint64)   8 in use (uint64)   16 input octets   24 output octets (uint64; the top bit: no value)
//             32 update time (double, CLOCK_BOOTTIME seconds)   40 name (24 bytes, zero-terminated)
//
// A row is guarded by its sequence, which is odd while the row is written: a reader copies the row and keeps the copy only if
// the sequence was even and the same before and after. Rows keep their place for as long as they are in use; a row that is
// given up may be used again for another name. The file is sparse: its full capacity costs memory only as it is used.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "brim/MaybeU63.h"

namespace KelQuill {

// A file that is no table, or cannot be made or mapped; says which and why.
class TableError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class CounterTable {
 public:
   static constexpr std::size_t nameMax = 23;  // bytes; the kernel's interface names have at most 15
   static constexpr uint32_t capacityMax = 1u << 20;

   struct Row {
      std::atomic<uint64_t> sequence;
      std::atomic<uint64_t> inUse;
      std::atomic<uint64_t> inOctets;
      std::atomic<uint64_t> outOctets;
      std::atomic<double> updateTime;  // s
      char name[nameMax + 1];
   };

   // What a row said at one moment.
   struct Counters {
      Brim::MaybeU63 inOctets;
      Brim::MaybeU63 outOctets;
      double updateTime = 0;  // s
   };

   // A new table: in the named file, which is replaced, or in anonymous memory where the path is empty.
   static std::unique_ptr<CounterTable> create( std::string const & path, uint32_t capacity = capacityMax );
   // An existing one of another process.
   static std::unique_ptr<CounterTable const> openReadOnly( std::string const & path );
   CounterTable( CounterTable const & ) = delete;
   CounterTable & operator=( CounterTable const & ) = delete;
   ~CounterTable();

   [[nodiscard]] uint32_t rows() const;  // used so far; some of them may be free again
   [[nodiscard]] uint32_t capacity() const;
   [[nodiscard]] Row const & row( uint32_t index ) const { return rowsBegin_[index]; }
   [[nodiscard]] static Counters read( Row const & row );

   // The writer's side.
   uint32_t rowIs( uint32_t index, std::string_view name );  // takes the row into use; index may be rows()
   void rowDel( uint32_t index );
   void countersIs( uint32_t index, Counters const & counters );

 private:
   struct Header;

   CounterTable( std::byte * memory, std::size_t bytes );
   static std::unique_ptr<CounterTable> mapped( int fd, std::size_t bytes, bool writable, std::string const & path );

   std::byte * const memory_;
   std::size_t const bytes_;
   Header * const header_;
   Row * const rowsBegin_;
};

}  // namespace KelQuill
