// The counter table of somebody who means harm: it is refused, or read within its bounds, also when it becomes another
// while it is open.
//
//    build/fuzz/fuzz/counters_fuzz -max_len=1024 WORK_DIR tests/fuzz/corpus/counters
#include <cstdint>
#include <cstring>

#include "MemoryFile.h"
#include "Targets.h"
#include "quill/CounterTable.h"

namespace {

using KelQuill::CounterTable;

void readAll( CounterTable const & table ) {
   KEL_ASSERT( table.rows() <= table.capacity() );
   for( uint32_t i = 0; i < table.rows(); ++i ) {
      // One that is being written is waited for, for a second: there is nothing to see.
      if( table.row( i ).sequence % 2 != 0 ) continue;
      auto const entry = table.entry( i );
      KEL_ASSERT( entry.has_value() == ( table.row( i ).inUse != 0 ) );
      if( !entry ) continue;
      KEL_ASSERT( entry->name.size() <= CounterTable::nameMax && entry->name.find( '\0' ) == std::string::npos );
      auto const read = CounterTable::read( table.row( i ) );
      KEL_ASSERT( read && read->restarts == entry->counters.restarts );
   }
}

// The header, but for the magic number, as the other process writes it now.
void headerIs( int fd, int byte ) {
   unsigned char bytes[20];
   std::memset( bytes, byte, sizeof bytes );
   KEL_ASSERT( ::pwrite( fd, bytes, sizeof bytes, 8 ) == sizeof bytes );
}

}  // namespace

bool Fuzz::counters( Bytes input ) {
   MemoryFile const file( input );
   try {
      auto const table = CounterTable::openReadOnly( file.path() );
      readAll( *table );
      for( int const byte : { 0xff, 0x7f, 0x00 } ) {
         headerIs( file.fd, byte );
         readAll( *table );
      }
      return true;
   } catch( KelQuill::TableError const & error ) {
      KEL_ASSERT( std::string( error.what() ).find( file.path() ) != std::string::npos );
      return false;
   }
}

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   static_cast<void>( Fuzz::counters( { bytes, size } ) );
   return 0;
}
