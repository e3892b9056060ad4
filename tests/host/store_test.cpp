// The store's file: what it keeps, what it refuses, and what is left of it after a crash.
#include "store/Store.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <functional>
#include <map>
#include <random>
#include <tuple>

#include "TempDir.h"

namespace Host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace fs = std::filesystem;
using Kind = StoreError::Kind;
using Rows = std::map<std::string, std::string>;

Rows rowsOf( Store const & store ) {
   Rows found;
   for( auto const & row : store.rows() ) found[row.path] = row.value;
   return found;
}

class StoreTest : public ::testing::Test {
 protected:
   // What opening it says, and of which kind; empty when it opens.
   std::string refusal( Kind kind ) {
      try {
         Store const store( path_ );
      } catch( StoreError const & error ) {
         EXPECT_EQ( error.kind(), kind ) << error.what();
         EXPECT_THAT( error.what(), StartsWith( path_ ) );
         return error.what();
      }
      return "";
   }
   // A store with so many rows that they fill some dozen pages.
   void fill( int rows = 500 ) {
      Store store( path_ );
      Store::Changes changes;
      for( int i = 0; i < rows; ++i ) {
         changes.written.push_back( { "a/" + std::to_string( 1000 + i ), std::string( 200, 'v' ) } );
      }
      changes.moment = Store::Moment{ "boot", 12.5, 0.5, 1e9 };
      store.commit( changes );
   }
   void sql( char const * statements ) {
      sqlite3 * db = nullptr;
      ASSERT_EQ( sqlite3_open( path_.c_str(), &db ), SQLITE_OK );
      EXPECT_EQ( sqlite3_exec( db, statements, nullptr, nullptr, nullptr ), SQLITE_OK ) << sqlite3_errmsg( db );
      sqlite3_close( db );
   }

   TempDir const dir_;
   std::string const path_ = dir_ / "state/maintd.db";
};

TEST_F( StoreTest, keepsRowsKindsAndTheMomentOverItsEnd ) {
   std::string const nul( "\0bytes\xff", 7 );
   std::string const odd = "quote ' percent % tab \t \xc3\xa4 end";
   {
      Store store( path_ );
      EXPECT_THAT( store.rows(), IsEmpty() );
      EXPECT_EQ( store.moment().boot, "" );
      store.commit( { {}, { { "a/eth1", "1" }, { "a/eth1/x", "2" }, { "a/eth1.5", "3" }, { "a", "0" } }, {} } );
      store.commit( { {}, { { "a/eth1", odd }, { odd, "" } }, { { "eth1", 1, 0 }, { "br0.7", 3, 7 } } } );
      store.commit( { {}, {}, {}, {}, { { "a/eth1", "gone" }, { "a/eth1.5", nul } } } );
      store.commit(
         { { "a/eth1" }, { { "a/eth1/y", "4" } }, { { "eth1", 2, 0 } }, Store::Moment{ "b", 0.1, -7.25, 1.7e9 } } );
   }
   Store const store( path_ );
   using Row = Store::Row;
   EXPECT_THAT( store.rows(),
                ElementsAre( Row{ "a", "0" }, Row{ "a/eth1.5", "3" }, Row{ "a/eth1/y", "4" }, Row{ odd, "" } ) );
   EXPECT_THAT( store.rows( "a/eth1" ), ElementsAre( Row{ "a/eth1/y", "4" } ) );
   Rows series;
   store.eachSeries( [&]( auto const & path, auto const & bytes ) { series[path] = bytes; } );
   EXPECT_EQ( series, ( Rows{ { "a/eth1.5", nul } } ) );
   EXPECT_THAT( store.declared(), ElementsAre( Store::Declared{ "br0.7", 3, 7 }, Store::Declared{ "eth1", 2, 0 } ) );
   auto const moment = store.moment();
   EXPECT_EQ( moment.boot, "b" );
   EXPECT_EQ( std::tuple( moment.now, moment.shift, moment.wallTime ), std::tuple( 0.1, -7.25, 1.7e9 ) );
   struct stat found {};
   ASSERT_EQ( stat( path_.c_str(), &found ), 0 );
   EXPECT_EQ( found.st_mode & 07777, 0640u );
   ASSERT_EQ( stat( ( dir_ / "state" ).c_str(), &found ), 0 );
   EXPECT_EQ( found.st_mode & 07777, 0750u );
}

TEST_F( StoreTest, aFileThatIsNoneIsRefusedAndLeftAsItIs ) {
   struct Case {
      char const * name;
      std::function<void()> make;
      Kind kind;
      char const * says;
   };
   auto const replace = [this]( auto change ) {
      fill();
      std::string content = contentOf( path_ );
      change( content );
      contentIs( path_, content );
   };
   Case const cases[] = {
      { "empty", [&] { contentIs( path_, "" ); }, Kind::foreign, "it is empty" },
      { "text", [&] { contentIs( path_, std::string( 5000, 'x' ) ); }, Kind::foreign, "no SQLite database" },
      { "another's", [&] { sql( "CREATE TABLE t( a ); INSERT INTO t VALUES( 1 )" ); }, Kind::foreign,
        "another program" },
      { "newer",
        [&] {
           fill();
           sql( "PRAGMA user_version = 3" );
        },
        Kind::newer, "in layout 3" },
      { "header", [&] { replace( []( auto & c ) { c.resize( 50 ); } ); }, Kind::damaged, "is damaged" },
      { "cut", [&] { replace( []( auto & c ) { c.resize( c.size() / 2 ); } ); }, Kind::damaged, "is damaged" },
      { "page", [&] { replace( []( auto & c ) { c.replace( 8 * 4096, 4096, 4096, 'x' ); } ); }, Kind::damaged,
        "is damaged" },
      { "table",
        [&] {
           fill();
           sql( "DROP TABLE moment" );
        },
        Kind::damaged, "no such table" },
   };
   for( Case const & c : cases ) {
      SCOPED_TRACE( c.name );
      fs::remove_all( dir_ / "state" );
      fs::create_directory( dir_ / "state" );
      c.make();
      std::string const before = contentOf( path_ );
      EXPECT_THAT( refusal( c.kind ), AllOf( HasSubstr( c.says ), HasSubstr( "no link is touched" ) ) );
      EXPECT_EQ( contentOf( path_ ), before );
   }
}

TEST_F( StoreTest, whatIsNoRegularFileIsRefused ) {
   fs::create_directories( path_ );
   EXPECT_THAT( refusal( Kind::foreign ), HasSubstr( "no regular file" ) );
   fs::remove( path_ );
   fs::create_symlink( dir_ / "elsewhere", path_ );
   EXPECT_THAT( refusal( Kind::foreign ), HasSubstr( "symbolic link" ) );
   EXPECT_FALSE( fs::exists( dir_ / "elsewhere" ) );
   fs::remove( path_ );
   ASSERT_EQ( mkfifo( path_.c_str(), 0600 ), 0 );
   EXPECT_THAT( refusal( Kind::foreign ), HasSubstr( "no regular file" ) );
   fs::remove( path_ );
   // The log of a store that was moved away without it: SQLite would take it for that of the new one.
   contentIs( path_ + "-wal", "something" );
   EXPECT_THAT( refusal( Kind::foreign ), HasSubstr( "the two go together" ) );
   EXPECT_EQ( contentOf( path_ + "-wal" ), "something" );
}

// Damaged with a log beside it: that is not taken into the file either.
TEST_F( StoreTest, aDamagedFileIsReadAsFarAsItCanBeAndNeverWritten ) {
   fill();
   {
      Store store( path_ );
      store.commit( { {}, { { "maintenance/link/held/held/up1", "{}" } }, {} } );
      fs::copy_file( path_, dir_ / "copy" );
      fs::copy_file( path_ + "-wal", dir_ / "copy-wal" );
   }
   fs::rename( dir_ / "copy", path_ );
   fs::rename( dir_ / "copy-wal", path_ + "-wal" );
   std::string content = contentOf( path_ );
   content.replace( 8 * 4096, 4096, 4096, 'x' );
   contentIs( path_, content );
   std::string const log = contentOf( path_ + "-wal" );
   ASSERT_GT( log.size(), 4096u );
   EXPECT_THAT( refusal( Kind::damaged ), HasSubstr( "maintctl release --all" ) );
   {
      Store store( path_, Store::Opening::salvage );
      EXPECT_THAT( store.damage(), HasSubstr( "is damaged" ) );
      EXPECT_THAT( store.rows( "maintenance/link/held" ), SizeIs( 1 ) );
      EXPECT_THROW( static_cast<void>( store.rows() ), StoreError );
      EXPECT_THROW( store.commit( {} ), StoreError );
   }
   EXPECT_EQ( contentOf( path_ ), content );
   EXPECT_EQ( contentOf( path_ + "-wal" ), log );
}

// A copy of the files as they are at any moment is what a crash leaves. Where the log is torn, too, it is the content
// after some commit, never half of one.
TEST_F( StoreTest, whateverIsLeftAfterACrashIsTheContentAfterACommit ) {
   auto const seed = std::random_device{}();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   Store store( path_ );
   std::vector<Rows> contents{ {} };
   std::string const copy = dir_ / "copy.db";
   for( int i = 0; i < 60; ++i ) {
      Store::Changes changes;
      for( auto n = 1 + random() % 20; n > 0; --n ) {
         std::string const path = "p/" + std::to_string( random() % 40 );
         changes.written.push_back( { path, std::string( random() % 9000, static_cast<char>( 'a' + i % 26 ) ) } );
      }
      if( i % 3 == 0 ) changes.deleted = { "p/" + std::to_string( random() % 40 ) };
      store.commit( changes );
      contents.push_back( rowsOf( store ) );

      fs::copy_file( path_, copy, fs::copy_options::overwrite_existing );
      fs::copy_file( path_ + "-wal", copy + "-wal", fs::copy_options::overwrite_existing );
      bool const torn = i % 2 == 1;
      if( torn ) {
         // Of what the last commit has written at most: what was there before it is on disk.
         auto const size = fs::file_size( copy + "-wal" );
         fs::resize_file( copy + "-wal", size - std::min<std::uintmax_t>( size, 1 + random() % 200 ) );
      }
      Rows const left = rowsOf( Store( copy ) );
      EXPECT_TRUE( left == contents.back() || ( torn && left == contents[contents.size() - 2] ) ) << "commit " << i;
   }
}

TEST_F( StoreTest, aCommitThatFindsNoRoomChangesNothingAndTheNextMaySucceed ) {
   // As maintd does; otherwise the limit ends the process.
   auto const before = std::signal( SIGXFSZ, SIG_IGN );
   Store store( path_ );
   store.commit( { {}, { { "a", "1" } }, {} } );
   rlimit limit{};
   getrlimit( RLIMIT_FSIZE, &limit );
   rlimit const small{ 20'000, limit.rlim_max };
   Store::Changes const great{ {}, { { "b", std::string( 100'000, 'x' ) } }, {} };
   setrlimit( RLIMIT_FSIZE, &small );
   try {
      store.commit( great );
      ADD_FAILURE() << "there was room";
   } catch( StoreError const & error ) {
      EXPECT_EQ( error.kind(), Kind::full ) << error.what();
      EXPECT_THAT( error.what(), HasSubstr( "Make room" ) );
   }
   setrlimit( RLIMIT_FSIZE, &limit );
   EXPECT_THAT( store.rows(), SizeIs( 1 ) );
   store.commit( great );
   EXPECT_THAT( store.rows(), SizeIs( 2 ) );
   std::signal( SIGXFSZ, before );
}

TEST_F( StoreTest, aCommitThatFailsHalfWayIsUndone ) {
   Store store( path_ );
   Store::Changes changes{ {}, { { "a", "1" } }, {}, Store::Moment{ "boot", std::nan( "" ), 0, 0 } };
   EXPECT_THROW( store.commit( changes ), StoreError );
   EXPECT_THAT( store.rows(), IsEmpty() );
   // So is one that its own writer gives up, whatever that throws.
   auto const givenUp = [&]( Store::Transaction & to ) {
      to.put( "a", "1" );
      throw std::out_of_range( "row" );
   };
   EXPECT_THROW( store.transact( givenUp ), std::out_of_range );
   EXPECT_THAT( store.rows(), IsEmpty() );
   changes.moment->now = 1;
   store.commit( changes );
   EXPECT_THAT( store.rows(), SizeIs( 1 ) );
}

TEST_F( StoreTest, isNotWrittenOnWhenItIsNotThereAnyMore ) {
   Store store( path_ );
   fs::rename( path_, path_ + ".away" );
   EXPECT_THROW( store.commit( {} ), StoreError );
   fs::rename( path_ + ".away", path_ );
   EXPECT_NO_THROW( store.commit( {} ) );
}

TEST_F( StoreTest, isOpenedByOneAtATime ) {
   Store const store( path_ );
   EXPECT_THAT( refusal( Kind::busy ), HasSubstr( "is in use" ) );
}

using StoreDeathTest = StoreTest;

// Permissions mean nothing to root, so this is for another user.
TEST_F( StoreDeathTest, aStoreThatCannotBeWrittenIsRefused ) {
   fill();
   auto const opening = [this]( fs::perms file, fs::perms directory ) {
      if( geteuid() == 0 ) {
         for( auto const & each : { path_, dir_ / "state", dir_ / "" } ) {
            if( chown( each.c_str(), 65534, 65534 ) != 0 ) _exit( 1 );
         }
         if( setresuid( 65534, 65534, 65534 ) != 0 ) _exit( 1 );
      }
      fs::permissions( path_, file );
      fs::permissions( dir_ / "state", directory );
      std::string const said = refusal( Kind::unwritable );
      fs::permissions( dir_ / "state", fs::perms::owner_all );
      std::fputs( said.c_str(), stderr );
      _exit( said.empty() || HasFailure() ? 1 : 3 );
   };
   auto const all = fs::perms::owner_all;
   auto const look = fs::perms::owner_read | fs::perms::owner_exec;
   EXPECT_EXIT( opening( all, look ), ::testing::ExitedWithCode( 3 ), "maintd.db: cannot be .*; no link is touched" );
   EXPECT_EXIT( opening( look, all ), ::testing::ExitedWithCode( 3 ), "maintd.db: cannot be .*; no link is touched" );
}

}  // namespace
}  // namespace Host
