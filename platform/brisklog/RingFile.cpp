#include "brisklog/RingFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "kel/Assert.h"

namespace Brisklog {

namespace {

constexpr Format outOfTable{ {}, "(message of a format that found no place in the table)" };

[[noreturn]] void failed( int error, std::string const & doing ) {
   throw std::system_error( error, std::generic_category(), "ring trace: " + doing );
}

uint64_t roundedRingBytes( uint64_t wanted ) {
   return std::bit_ceil( std::clamp( wanted, ringBytesMin, ringBytesMax ) );
}

std::byte * mapped( int fd, uint64_t bytes ) {
   int const flags = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
   void * const at = mmap( nullptr, bytes, PROT_READ | PROT_WRITE, flags, fd, 0 );
   if( at == MAP_FAILED ) failed( errno, "mapping " + std::to_string( bytes ) + " bytes" );
   return static_cast<std::byte *>( at );
}

std::string encoded( Format const & format ) {
   FormatHeader header{};
   std::size_t const bytes = sizeof header + format.types.size() + format.text.size();
   // The text is a literal in a call, far below the 64 KiB that the numbers hold.
   header.bytes = static_cast<uint16_t>( ( bytes + 7 ) & ~std::size_t( 7 ) );
   header.textBytes = static_cast<uint16_t>( format.text.size() );
   header.argCount = static_cast<uint32_t>( format.types.size() );
   std::string entry( reinterpret_cast<char const *>( &header ), sizeof header );
   for( ArgType const type : format.types ) entry += static_cast<char>( type );
   entry += format.text;
   entry.resize( header.bytes );
   return entry;
}

// Closes the descriptor on every way out; the mapping outlives it.
struct Descriptor {
   int const fd;
   ~Descriptor() { close( fd ); }
};

// Renamed, never truncated: a reader may be copying the old ring. The old one first, or the new one would replace it.
void putInPlace( std::string const & made, std::string const & path ) {
   if( std::rename( path.c_str(), ( path + ".old" ).c_str() ) != 0 && errno != ENOENT ) {
      failed( errno, "keeping the previous " + path );
   }
   if( std::rename( made.c_str(), path.c_str() ) != 0 ) failed( errno, "putting the new " + path + " in its place" );
}

}  // namespace

std::unique_ptr<RingFile> RingFile::create( std::string const & path, uint64_t ringBytes ) {
   // Under another name until it is whole: a reader that finds `path` must not find half a ring. One that is there was
   // left by a process that died in here, and is overwritten.
   std::string const made = path + ".new";
   Descriptor const file{ open( made.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0640 ) };
   if( file.fd < 0 ) failed( errno, "creating " + made );
   uint64_t const rounded = roundedRingBytes( ringBytes );
   // A full file system must show here: later it would kill the process in the middle of a message, by a signal.
   auto const bytes = static_cast<off_t>( sizeof( FileHeader ) + formatAreaBytes + rounded );
   // It returns its error and leaves errno alone.
   if( int const error = posix_fallocate( file.fd, 0, bytes ) ) {
      unlink( made.c_str() );
      failed( error, "allocating " + std::to_string( bytes ) + " bytes for " + path );
   }
   std::unique_ptr<RingFile> ring( new RingFile( file.fd, rounded, presentBoot() ) );
   putInPlace( made, path );
   return ring;
}

std::unique_ptr<RingFile> RingFile::anonymous( uint64_t ringBytes ) {
   return std::unique_ptr<RingFile>( new RingFile( -1, roundedRingBytes( ringBytes ), presentBoot() ) );
}

RingFile::RingFile( int fd, uint64_t ringBytes, uint64_t boot )
   : ringBytes_( ringBytes ),
     base_( mapped( fd, imageBytes() ) ),
     blockEnd_( ringBytes / ringBlocks ),
     ringMask_( ringBytes - 1 ),
     ring_( base_ + sizeof( FileHeader ) + formatAreaBytes ),
     committed_( header().head ) {
   // Fresh pages are all zeros, so what begins as 0 (positions, the table's size) is there already.
   header().version = ringVersion;
   header().formatAreaBytes = formatAreaBytes;
   header().ringBytes = ringBytes;
   header().boot = boot;
   // The first entry, while there is surely room: number 0 is what a full table gives for every format.
   uint16_t const first = formatNumber( outOfTable );
   KEL_ASSERT( first == 0 );
   // Last: a file with the magic number is a whole ring.
   std::atomic_ref( header().magic ).store( ringMagic, std::memory_order_release );
}

RingFile::~RingFile() { munmap( base_, imageBytes() ); }

uint16_t RingFile::formatNumber( Format const & format ) {
   std::string const entry = encoded( format );
   // By content and not by call site: calls of the same format share an entry, also those of a plug-in loaded anew, and
   // the table grows no further than there are formats.
   if( auto const found = formatNumbers_.find( entry ); found != formatNumbers_.end() ) return found->second;
   uint64_t const used = header().formatBytes;
   if( used + entry.size() > formatAreaBytes ) return 0;
   std::memcpy( base_ + sizeof( FileHeader ) + used, entry.data(), entry.size() );
   // After the entry, and before any record that uses it: a reader sees only whole entries, and all that it needs.
   std::atomic_ref( header().formatBytes ).store( used + entry.size(), std::memory_order_release );
   // The table has room for 8192 entries of the least size, so no number is cut and none is the filler's.
   auto const number = static_cast<uint16_t>( formatNumbers_.size() );
   formatNumbers_.emplace( entry, number );
   return number;
}

// Gives up the oldest block if its place is needed, then the rest of the present one.
void RingFile::beginBlock() {
   uint64_t const next = blockEnd_ + ringBytes_ / ringBlocks;
   // In the first lap there is nothing yet to give up.
   if( next > ringBytes_ ) std::atomic_ref( header().tail ).store( next - ringBytes_, std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_release );  // before anything is overwritten
   // A rest is a multiple of 8 bytes, so whatever there is has room for a filler's header.
   if( head_ != blockEnd_ ) {
      RecordHeader const filler{ static_cast<uint32_t>( blockEnd_ - head_ ), RecordHeader::fillerFormat, 0, 0, 0 };
      std::memcpy( ring_ + ( head_ & ringMask_ ), &filler, fillerBytes );
   }
   head_ = blockEnd_;
   blockEnd_ = next;
   std::atomic_ref( committed_ ).store( head_, std::memory_order_release );
}

}  // namespace Brisklog
