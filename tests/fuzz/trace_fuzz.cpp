// The file of a ring trace, of a process that died, of a disk that failed, or of somebody who means harm: it is
// refused, or read up to where it does not hold.
//
// Such a file is nearly 100 KB, most of them zeros. So the input is the file without them: the header, whose byte
// "reserved" gives the length of the format table in units of 8 bytes, then the table, then the ring. What is cut off
// of the header is left out of the file.
//
//    build/fuzz/fuzz/trace_fuzz -max_len=1024 WORK_DIR tests/fuzz/corpus/trace
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "MemoryFile.h"
#include "Targets.h"
#include "brisklog/Follower.h"
#include "brisklog/Reader.h"

namespace {

using namespace Brisklog;

std::vector<unsigned char> unfolded( Fuzz::Bytes input ) {
   std::vector<unsigned char> file( input.begin(), input.end() );
   if( input.size() < sizeof( FileHeader ) ) return file;
   Fuzz::Bytes const rest = input.subspan( sizeof( FileHeader ) );
   std::size_t const table = std::min<std::size_t>( 8 * input[offsetof( FileHeader, reserved )], rest.size() );
   uint64_t ringBytes = 0;
   std::memcpy( &ringBytes, input.data() + offsetof( FileHeader, ringBytes ), sizeof ringBytes );
   // No more than fits into two of the least size, whatever the header says.
   ringBytes = std::min( ringBytes, 2 * ringBytesMin );
   file.assign( sizeof( FileHeader ) + formatAreaBytes + ringBytes, 0 );
   auto const put = [&file]( std::size_t at, Fuzz::Bytes part ) {
      std::ranges::copy( part, std::span( file ).subspan( at ).begin() );
   };
   put( 0, input.first( sizeof( FileHeader ) ) );
   put( sizeof( FileHeader ), rest.first( table ) );
   put( sizeof( FileHeader ) + formatAreaBytes, rest.subspan( table, std::min( rest.size() - table, ringBytes ) ) );
   return file;
}

void check( Message const & message, uint64_t expected ) {
   KEL_ASSERT( levelExists( message.level ) && message.sequence == expected );
   // A format of 64 KiB at most, and what fits into a record.
   KEL_ASSERT( message.text.size() <= formatAreaBytes + 2 * recordBytesMax );
}

}  // namespace

bool Fuzz::trace( Bytes input ) {
   MemoryFile const file( unfolded( input ) );
   try {
      Reader reader( file.fd, "file" );
      std::size_t count = 0;
      for( std::optional<uint64_t> next; auto const message = reader.next(); ++count ) {
         check( *message, next.value_or( message->sequence ) );
         next = message->sequence + 1;
      }
      KEL_ASSERT( count <= 2 * ringBytesMin / sizeof( RecordHeader ) );
      // Who follows the file is given the same.
      Follower follower( file.path() );
      auto const news = follower.next();
      KEL_ASSERT( news && news->messages.size() == count && news->damaged == reader.damaged() );
      return !reader.damaged();
   } catch( RingError const & ) {
      return false;
   }
}

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   static_cast<void>( Fuzz::trace( { bytes, size } ) );
   return 0;
}
