#include "brisklog/RingFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "kel/Assert.h"

namespace Brisklog {

namespace {

constexpr Format outOfTable{ {}, "(message of a format that found no place in the table)" };

[[noreturn]] void failed( int error, std::string const & doing ) {
   throw RingError( "ring trace: " + doing + ": " + std::generic_category().message( error ) );
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
   ~Descriptor() {
      if( fd >= 0 ) close( fd );
   }
};

// Removes the file on every way out but the one on which it was given its place.
struct Unfinished {
   std::string const path;
   bool inPlace = false;
   ~Unfinished() {
      if( !inPlace ) unlink( path.c_str() );
   }
};

constexpr int earlierKept = 3;

// The newest is number 0.
std::string nameOf( std::string const & path, int number ) {
   return number == 0 ? path : path + "." + std::to_string( number );
}

// Throws where something else is there.
bool ringIsThere( std::string const & path ) {
   struct stat status = {};
   // Not what a symbolic link leads to; and nothing is opened that does more than that when it is, as a device may.
   if( lstat( path.c_str(), &status ) != 0 ) {
      if( errno == ENOENT ) return false;
      failed( errno, "looking for " + path );
   }
   uint64_t first = ringMagic;
   if( S_ISREG( status.st_mode ) && status.st_size > 0 ) {
      Descriptor const file{ open( path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC ) };
      if( file.fd < 0 ) failed( errno, "reading " + path );
      first = 0;
      if( pread( file.fd, &first, sizeof first, 0 ) < 0 ) failed( errno, "reading " + path );
   }
   if( S_ISREG( status.st_mode ) && first == ringMagic ) return true;
   throw RingError( "ring trace: " + path + " is no ring trace and is left as it is: move it away, or name another" );
}

// The file under the name that it has until it is whole: a reader that finds `path` must not find half a ring.
int openedNew( std::string const & made ) {
   // Left by a process that died before it was in its place.
   if( ringIsThere( made ) ) unlink( made.c_str() );
   int const fd = open( made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640 );
   if( fd < 0 ) failed( errno, "creating " + made );
   // Whatever the mask: the group may read what happened. Where the file system knows no modes, it may not.
   static_cast<void>( fchmod( fd, 0640 ) );
   // Made by root where another user's are, it is that user's, who is to keep it as an earlier one.
   struct stat directory {};
   std::string const above = std::filesystem::path( made ).parent_path().string();
   if( geteuid() == 0 && stat( above.empty() ? "." : above.c_str(), &directory ) == 0 ) {
      static_cast<void>( !fchown( fd, directory.st_uid, directory.st_gid ) );
   }
   return fd;
}

void allocate( int fd, std::string const & path, uint64_t bytes ) {
   // The magic number first, so that whatever is left of a process that dies in here is known for ours.
   if( pwrite( fd, &ringMagic, sizeof ringMagic, 0 ) < 0 ) failed( errno, "writing " + path );
   // A full file system must show here: later it would kill the process in the middle of a message, by a signal.
   // It returns its error and leaves errno alone.
   if( int const error = posix_fallocate( fd, 0, static_cast<off_t>( bytes ) ) ) {
      failed( error, "allocating " + std::to_string( bytes ) + " bytes for " + path );
   }
}

// Renamed, never truncated: a reader may be copying the old ring. The oldest first, so that a process that dies in here
// leaves a gap and loses none but the last.
void makePlace( std::string const & path ) {
   int last = 0;  // whose name nobody has, or who goes
   while( ringIsThere( nameOf( path, last ) ) && last < earlierKept ) ++last;
   for( ; last > 0; --last ) {
      std::string const name = nameOf( path, last - 1 );
      if( std::rename( name.c_str(), nameOf( path, last ).c_str() ) != 0 )
         failed( errno, "keeping the earlier " + name );
   }
}

}  // namespace

std::unique_ptr<RingFile> RingFile::create( std::string const & path, uint64_t ringBytes ) {
   // What cannot be made shows when the file is: most likely it is there.
   if( auto const slash = path.rfind( '/' ); slash != std::string::npos ) {
      static_cast<void>( mkdir( path.substr( 0, slash ).c_str(), 0750 ) );
   }
   std::string const made = path + ".new";
   Descriptor const file{ openedNew( made ) };
   Unfinished unfinished{ made };
   uint64_t const rounded = roundedRingBytes( ringBytes );
   allocate( file.fd, path, sizeof( FileHeader ) + formatAreaBytes + rounded );
   std::unique_ptr<RingFile> ring( new RingFile( file.fd, rounded, presentBoot() ) );
   // What it has so far, for after a loss of power: a file without a header would be nobody's, and in the way for ever.
   if( fdatasync( file.fd ) != 0 ) failed( errno, "writing " + path );
   makePlace( path );
   if( std::rename( made.c_str(), path.c_str() ) != 0 ) failed( errno, "putting the new " + path + " in its place" );
   unfinished.inPlace = true;
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
   header().magic = ringMagic;
   header().formatAreaBytes = formatAreaBytes;
   header().ringBytes = ringBytes;
   header().boot = boot;
   // The first entry, while there is surely room: number 0 is what a full table gives for every format.
   uint16_t const first = formatNumber( outOfTable );
   KEL_ASSERT( first == 0 );
   // Last: a file with a version is a whole ring.
   std::atomic_ref( header().version ).store( ringVersion, std::memory_order_release );
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
