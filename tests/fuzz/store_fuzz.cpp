// A store that is not as maintd has left it. An input that begins as a SQLite database does is the file: it is refused
// and stays as it is, or it is read. Any other input is rows, each a line of path, tab and value, and series, each with
// "~" before its path: they are refused, or become records, and these are read back as the same records.
//
//    TMPDIR=/dev/shm build/fuzz/fuzz/store_fuzz -max_len=32768 WORK_DIR tests/fuzz/corpus/store
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include "Targets.h"
#include "kel/ActivityLoop.h"
#include "kel/Assert.h"
#include "state/MaintenanceState.h"
#include "store/Keeper.h"
#include "store/Store.h"

namespace {

using namespace Host;
namespace fs = std::filesystem;

// A directory for files, gone with it.
struct Scratch {
   std::string const path = [] {
      std::string name = ( fs::temp_directory_path() / "store-fuzz-XXXXXX" ).string();
      KEL_ASSERT( ::mkdtemp( name.data() ) );
      return name;
   }();
   ~Scratch() { fs::remove_all( path ); }

   [[nodiscard]] std::string operator/( char const * name ) const { return path + "/" + name; }
};

// The records of an agent, read from a store and kept in it.
struct Agent {
   explicit Agent( Store & store ) { keptIn( store ); }
   // From now on, and all that is there.
   void keptIn( Store & store ) {
      keeper.reset();  // there is one at a time
      keeper.emplace( Keeper::Parts{ database, store, {}, {}, [] { return 1e9; }, "boot" } );
   }

   Kel::Ptr<Dovra::EntityManager> const database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
   std::optional<Keeper> keeper;
};

std::string contents( std::string const & path ) {
   std::ifstream file( path, std::ios::binary );
   return { std::istreambuf_iterator<char>( file ), {} };
}

void check( StoreError const & error, std::string const & path ) {
   KEL_ASSERT( std::string_view( error.what() ).starts_with( path ) );
}

bool takesFile( std::string const & bytes ) {
   Scratch const scratch;
   std::string const path = scratch / "file.db";
   std::ofstream( path, std::ios::binary ) << bytes;
   try {
      Store store( path );
      Agent const agent( store );
   } catch( StoreError const & error ) {
      check( error, path );
      // Rows that fit no record are found only when it is open, and closing it may tidy up.
      bool const opened = [&] {
         try {
            Store const store( path );
            return true;
         } catch( StoreError const & ) {
            return false;
         }
      }();
      KEL_ASSERT( opened || contents( path ) == bytes );
      try {
         Store const store( path, Store::Opening::salvage );
         static_cast<void>( store.rows() );
         static_cast<void>( store.declared() );
      } catch( StoreError const & unreadable ) {
         check( unreadable, path );
      }
      return false;
   }
   return true;
}

Store::Changes rowsOf( std::string_view text ) {
   std::map<std::string, std::string> rows;
   while( !text.empty() ) {
      std::string_view const line = text.substr( 0, text.find( '\n' ) );
      text.remove_prefix( std::min( text.size(), line.size() + 1 ) );
      std::size_t const tab = std::min( line.find( '\t' ), line.size() );
      rows[std::string( line.substr( 0, tab ) )] = line.substr( std::min( tab + 1, line.size() ) );
   }
   Store::Changes changes;
   for( auto const & [path, value] : rows ) {
      if( path.starts_with( '~' ) ) {
         changes.series.push_back( { path.substr( 1 ), value } );
      } else {
         changes.written.push_back( { path, value } );
      }
   }
   return changes;
}

// What a new store holds in which they are kept.
std::vector<Store::Row> keptAnew( Agent & agent, std::string const & path ) {
   Store store( path );
   agent.keptIn( store );
   KEL_ASSERT( agent.keeper->keep() );
   agent.keeper.reset();
   auto all = store.rows();
   store.eachSeries( [&]( auto const & path, auto const & bytes ) { all.push_back( { path, bytes } ); } );
   return all;
}

bool takesRows( std::string_view text ) {
   Scratch const scratch;
   Store given( scratch / "given.db" );
   given.commit( rowsOf( text ) );
   std::vector<Store::Row> first;
   try {
      Agent agent( given );
      first = keptAnew( agent, scratch / "first.db" );
   } catch( StoreError const & error ) {
      check( error, given.path() );
      return false;
   }
   Store again( scratch / "first.db" );
   Agent agent( again );
   KEL_ASSERT( keptAnew( agent, scratch / "second.db" ) == first );
   return true;
}

}  // namespace

bool Fuzz::store( Bytes input ) {
   std::string const text( reinterpret_cast<char const *>( input.data() ), input.size() );
   Kel::Ptr<Kel::VirtualClock> const clock = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop const loop( clock );
   return text.starts_with( "SQLite format 3" ) ? takesFile( text ) : takesRows( text );
}

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   static_cast<void>( Fuzz::store( { bytes, size } ) );
   return 0;
}
