// The mapped region that ring-trace messages are written into: memory of this process, or a file that survives it.
//
// The process has one current ring, held by Brisklog.cpp; only that writes. One writer, no locks. A file's pages belong
// to the kernel, so what was committed is there for a Reader however the process ends; it is not flushed to the disk,
// and a power failure may lose it. Readers are never waited for. The layout and what holds at every moment are in
// RingLayout.h.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "brisklog/RingLayout.h"

namespace Brisklog {

// The file cannot be made or read, or is no ring; the text says which and why.
class RingError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class RingFile {
 public:
   // A new file at `path` with a ring of at least `ringBytes`, rounded up to a power of two from 32 KiB to 1 GiB. Its
   // directory is made, with mode 0750, where only that is missing. It appears there as a whole ring, made as
   // `path` + ".new". A ring that was there, most likely of a process that died, is kept as `path` + ".1", that one as
   // ".2", and that one as ".3"; what ".3" was is lost. All of the space is allocated now.
   //
   // Throws RingError, and leaves what was there in its place; also where one of these names is that of something else
   // than a ring, which is never touched. An empty file has nothing to lose and counts as a ring.
   [[nodiscard]] static std::unique_ptr<RingFile> create( std::string const & path, uint64_t ringBytes );

   // Memory of this process, gone with it. Throws RingError.
   [[nodiscard]] static std::unique_ptr<RingFile> anonymous( uint64_t ringBytes );

   RingFile( RingFile const & ) = delete;
   RingFile & operator=( RingFile const & ) = delete;
   ~RingFile();

   // Everything: header, format table, ring.
   [[nodiscard]] std::span<std::byte const> image() const { return { base_, imageBytes() }; }

   // The number under which the table has this format, which is entered if it is new. Once the table is full, every new
   // format gets number 0: its messages then show that they were written, and no more.
   [[nodiscard]] uint16_t formatNumber( Format const & format );

   // Whether a record of `bytes` (a multiple of 8, at most recordBytesMax) fits into what is left of the present block.
   [[nodiscard]] bool hasRoom( uint32_t bytes ) const { return head_ + bytes <= blockEnd_; }
   void roomIs( uint32_t bytes ) {
      if( !hasRoom( bytes ) ) beginBlock();
   }
   // Where the next record goes, for which there is room. It is part of the ring from commit() of its size on.
   [[nodiscard]] std::byte * place() const { return ring_ + ( head_ & ringMask_ ); }

   [[gnu::always_inline]] void commit( uint32_t bytes ) {
      head_ += bytes;
      ++sequence_;
      // After the record's bytes, also for a reader in another process.
      std::atomic_ref( committed_ ).store( head_, std::memory_order_release );
   }

   // Of the next record.
   [[nodiscard]] uint64_t sequence() const { return sequence_; }

 private:
   RingFile( int fd, uint64_t ringBytes, uint64_t boot );

   [[nodiscard]] uint64_t imageBytes() const { return sizeof( FileHeader ) + formatAreaBytes + ringBytes_; }
   [[nodiscard]] FileHeader & header() const { return *reinterpret_cast<FileHeader *>( base_ ); }
   void beginBlock();

   uint64_t const ringBytes_;
   std::byte * const base_;

   // What every message needs.
   uint64_t head_ = 0;
   uint64_t blockEnd_;
   uint64_t sequence_ = 0;
   uint64_t const ringMask_;
   std::byte * const ring_;
   uint64_t & committed_;  // the header's head

   std::map<std::string, uint16_t> formatNumbers_;  // by the entry's bytes
};

}  // namespace Brisklog
