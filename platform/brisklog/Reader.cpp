#include "brisklog/Reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <functional>
#include <system_error>

namespace Brisklog {

struct Reader::Source {
   std::string name;
   uint64_t bytes;
   std::function<void( uint64_t at, std::span<std::byte> to )> copy;

   [[noreturn]] void refuse( std::string const & why ) const { throw RingError( "ring trace " + name + ": " + why ); }

   // Throws unless the header is that of a ring in everything that it says: all that is read later relies on its sizes.
   [[nodiscard]] FileHeader header() const {
      FileHeader header{};
      if( bytes < sizeof header ) refuse( "too short for a ring" );
      copy( 0, std::as_writable_bytes( std::span( &header, 1 ) ) );
      if( header.magic != ringMagic ) refuse( "not a ring" );
      if( header.version != ringVersion ) refuse( "version " + std::to_string( header.version ) + " is not known" );
      bool const sized = header.formatAreaBytes == formatAreaBytes && std::has_single_bit( header.ringBytes ) &&
                         header.ringBytes >= ringBytesMin && header.ringBytes <= ringBytesMax;
      if( !sized ) refuse( "the header gives sizes that no ring has" );
      if( bytes != sizeof header + header.formatAreaBytes + header.ringBytes ) refuse( "the file's size is wrong" );
      return header;
   }
};

namespace {

struct OpenFile {
   int const fd;
   ~OpenFile() {
      if( fd >= 0 ) close( fd );
   }
};

}  // namespace

Reader::Reader( std::string const & path ) {
   OpenFile const file{ open( path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC ) };
   loadFile( file.fd, path );
}

Reader::Reader( int fd, std::string const & name ) { loadFile( fd, name ); }

void Reader::loadFile( int fd, std::string const & name ) {
   struct stat status = {};
   Source source{ name, 0, {} };
   if( fd < 0 || fstat( fd, &status ) != 0 ) source.refuse( std::generic_category().message( errno ) );
   if( !S_ISREG( status.st_mode ) ) source.refuse( "not a file" );
   source.bytes = static_cast<uint64_t>( status.st_size );
   // Read, not mapped: a file that somebody cuts short gives an error then, and no signal.
   source.copy = [&]( uint64_t at, std::span<std::byte> to ) {
      ssize_t const got = pread( fd, to.data(), to.size(), static_cast<off_t>( at ) );
      if( got < 0 ) source.refuse( std::generic_category().message( errno ) );
      if( static_cast<std::size_t>( got ) != to.size() ) source.refuse( "cut short while it was read" );
   };
   load( source );
}

Reader::Reader( RingFile const & ring ) {
   auto const image = ring.image();
   load( { "in memory", image.size(), [image]( uint64_t at, std::span<std::byte> to ) {
             std::memcpy( to.data(), image.data() + at, to.size() );
          } } );
}

void Reader::load( Source const & source ) {
   FileHeader const before = source.header();
   thisBoot_ = before.boot != 0 && before.boot == presentBoot();
   ring_.resize( before.ringBytes );  // at most 1 GiB, and the file has as much: that was checked
   source.copy( sizeof( FileHeader ) + formatAreaBytes, ring_ );
   // The header again, after the ring: what the tail has passed by now may have been overwritten while it was copied.
   // And the table only now, so that it has every format that a record of the copy uses.
   std::atomic_thread_fence( std::memory_order_acquire );
   FileHeader const after = source.header();
   std::vector<std::byte> table( std::min( after.formatBytes, formatAreaBytes ) );
   source.copy( sizeof( FileHeader ), table );
   readFormats( table );
   // The head as it was before: what was committed after that may be in the copy in part. Where the tail has passed it
   // meanwhile, nothing of the copy is left.
   end_ = before.head;
   position_ = std::min( std::max( before.tail, after.tail ), end_ );
   if( end_ - position_ > ring_.size() || position_ % 8 != 0 || end_ % 8 != 0 )
      source.refuse( "its positions do not hold" );
}

void Reader::readFormats( std::span<std::byte const> table ) {
   while( !table.empty() ) {
      // A rest that is too short for a header leaves it zero, which does not hold either.
      FormatHeader header{};
      if( table.size() >= sizeof header ) std::memcpy( &header, table.data(), sizeof header );
      std::size_t const needed = sizeof header + header.argCount + header.textBytes;
      damaged_ = header.argCount > argCountMax || header.bytes < needed || header.bytes > table.size();
      if( damaged_ ) return;  // entries have no mark to find the next one by; records of those before are still read
      auto const * const types = reinterpret_cast<char const *>( table.data() + sizeof header );
      OwnedFormat & format = formats_.emplace_back();
      std::transform( types, types + header.argCount, std::back_inserter( format.types ),
                      []( char type ) { return static_cast<ArgType>( type ); } );
      format.text.assign( types + header.argCount, header.textBytes );
      table = table.subspan( header.bytes );
   }
}

std::optional<Message> Reader::next() {
   while( position_ < end_ ) {
      uint64_t const at = position_ & ( ring_.size() - 1 );
      auto const rest =
         std::span<std::byte const>( ring_ ).subspan( at, std::min( ring_.size() - at, end_ - position_ ) );
      // Only as much as a filler has: of that there may be no more. A length below it, above all 0, would never move
      // on.
      RecordHeader start{};
      std::memcpy( &start, rest.data(), fillerBytes );
      if( start.bytes < fillerBytes || start.bytes % 8 != 0 || start.bytes > rest.size() ) return foundDamage();
      position_ += start.bytes;
      if( start.format != RecordHeader::fillerFormat ) return messageOf( rest.first( start.bytes ) );
   }
   return std::nullopt;
}

std::optional<Message> Reader::messageOf( std::span<std::byte const> record ) {
   RecordHeader header{};
   if( record.size() < sizeof header ) return foundDamage();
   std::memcpy( &header, record.data(), sizeof header );
   // A record that holds in itself but does not follow the one before it is left from an earlier lap, as when the
   // machine died and only some pages had reached the disk.
   bool const follows = header.sequence == sequence_.value_or( header.sequence );
   if( !follows || header.format >= formats_.size() || !levelExists( header.level ) ) return foundDamage();
   OwnedFormat const & format = formats_[header.format];
   auto text = messageText( { format.types, format.text }, record.subspan( sizeof header ) );
   if( !text ) return foundDamage();
   sequence_ = header.sequence + 1;
   return Message{ header.time, header.level, header.sequence, std::move( *text ) };
}

// Ends the reading: records are found by the lengths of those before them, and after a broken one by nothing.
std::nullopt_t Reader::foundDamage() {
   damaged_ = true;
   position_ = end_;
   return std::nullopt;
}

}  // namespace Brisklog
