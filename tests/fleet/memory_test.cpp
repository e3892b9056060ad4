#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "memory/SqliteMemory.h"

namespace FleetTest {

namespace {

class SqliteMemoryTest : public testing::Test {
 protected:
   SqliteMemoryTest() { std::filesystem::create_directories( directory ); }
   ~SqliteMemoryTest() override { std::filesystem::remove_all( directory ); }

   [[nodiscard]] std::string fault() const {
      try {
         Fleet::SqliteMemory const memory( path );
         return "";
      } catch( Fleet::MemoryFault const & fault ) {
         return fault.what();
      }
   }

   std::filesystem::path const directory =
      std::filesystem::temp_directory_path() / ( "fleet-memory-" + std::to_string( getpid() ) );
   std::string const path = directory / "owner.db";
};

}  // namespace

TEST_F( SqliteMemoryTest, whatWasKeptIsThereInTheNextLifeAndNobodyElseReadsIt ) {
   using Rows = Fleet::Memory::Rows;
   {
      Fleet::SqliteMemory memory( path );
      memory.commit( { { "a", "1" }, { "b", "2" }, { "c", std::string( "with\0nul and '", 14 ) } } );
      memory.commit( { { "a", std::nullopt }, { "b", "3" }, { "never there", std::nullopt } } );
      EXPECT_EQ( fault(), path + " is in use by another process" );
      // A backup is taken while it is open, and more is kept afterwards.
      sqlite3 * reader = nullptr;
      ASSERT_EQ( sqlite3_open_v2( path.c_str(), &reader, SQLITE_OPEN_READONLY, nullptr ), SQLITE_OK );
      EXPECT_EQ( sqlite3_exec( reader, "SELECT * FROM row", nullptr, nullptr, nullptr ), SQLITE_OK )
         << sqlite3_errmsg( reader );
      sqlite3_close( reader );
      EXPECT_EQ( fault(), path + " is in use by another process" );
      memory.commit( { { "d", "4" } } );
      memory.commit( { { "d", std::nullopt } } );
   }
   Rows const rows = Fleet::SqliteMemory( path ).rows();
   EXPECT_EQ( rows, ( Rows{ { "b", "3" }, { "c", std::string( "with\0nul and '", 14 ) } } ) );
   struct stat its {};
   ASSERT_EQ( stat( path.c_str(), &its ), 0 );
   EXPECT_EQ( its.st_mode & 0777, 0600u );
}

TEST_F( SqliteMemoryTest, whatHasHappenedStaysWithWhatItChangedUntilItIsOld ) {
   using namespace Fleet;
   auto const numbers = []( Records const & found ) {
      std::string text;
      for( Record const & record : found ) text += std::to_string( record.number ) + record.text + " ";
      return text;
   };
   double const day = 86400;
   {
      SqliteMemory memory( path );
      memory.commit( {}, { { .time = 1 * day, .box = "s1", .unit = "fabric", .plan = "plan-1", .text = "a" },
                           { .time = 1 * day, .box = "s2", .unit = "fabric", .plan = "plan-1", .text = "b" } } );
      memory.commit( { { "row", "1" } }, { { .time = 3 * day, .box = "s1", .unit = "edge", .text = "c" } } );
      memory.commit( {}, { { .time = 4 * day, .plan = "plan-2", .text = "d" } } );
   }
   SqliteMemory memory( path );
   EXPECT_EQ( numbers( memory.happened( {} ) ), "4d 3c 2b 1a " );
   EXPECT_EQ( numbers( memory.happened( { .box = "s1" } ) ), "3c 1a " );
   EXPECT_EQ( numbers( memory.happened( { .box = "s1", .unit = "fabric" } ) ), "1a " );
   EXPECT_EQ( numbers( memory.happened( { .plan = "plan-1" } ) ), "2b 1a " );
   EXPECT_EQ( numbers( memory.happened( { .since = 3 * day } ) ), "4d 3c " );
   EXPECT_EQ( numbers( memory.happened( { .since = 5 * day } ) ), "" );
   EXPECT_EQ( numbers( memory.happened( { .before = 4, .most = 2 } ) ), "3c 2b " );
   EXPECT_EQ( memory.happened( { .box = "s2" } ).at( 0 ),
              ( Record{ .number = 2, .time = day, .box = "s2", .unit = "fabric", .plan = "plan-1", .text = "b" } ) );
   // What cannot be put on record is not done, either.
   sqlite3 * other = nullptr;
   ASSERT_EQ( sqlite3_open_v2( path.c_str(), &other, SQLITE_OPEN_READWRITE, nullptr ), SQLITE_OK );
   char const * const bar =
      "CREATE TRIGGER bar BEFORE INSERT ON record WHEN new.text = 'bad'"
      " BEGIN SELECT RAISE( ABORT, 'no' ); END";
   ASSERT_EQ( sqlite3_exec( other, bar, nullptr, nullptr, nullptr ), SQLITE_OK );
   EXPECT_THROW( memory.commit( { { "row", "2" } }, { { .time = 4 * day, .text = "bad" } } ), MemoryFault );
   EXPECT_EQ( memory.rows().at( "row" ), "1" );
   // One that is as old as may be stays, and older ones go.
   memory.commit( {}, { { .time = Ledger::secondsKept + 3 * day, .text = "e" } } );
   EXPECT_EQ( numbers( memory.happened( {} ) ), "5e 4d 3c " );
   ASSERT_EQ( sqlite3_exec( other, "UPDATE sqlite_sequence SET seq = 1000003", nullptr, nullptr, nullptr ), SQLITE_OK );
   sqlite3_close( other );
   memory.commit( {}, { { .time = Ledger::secondsKept + 3 * day, .text = "f" } } );
   EXPECT_EQ( numbers( memory.happened( {} ) ), "1000004f 5e " );
}

TEST_F( SqliteMemoryTest, aFileThatIsNoneOfOursIsRefusedAndLeftAlone ) {
   std::string const text = "something that somebody wants to keep, and that is longer than a page header would be";
   std::ofstream( path ) << text;
   EXPECT_NE( fault().find( "file is not a database" ), std::string::npos ) << fault();
   std::string found;
   std::getline( std::ifstream( path ), found );
   EXPECT_EQ( found, text );
   std::filesystem::remove( path );

   std::filesystem::create_symlink( directory / "elsewhere", path );
   EXPECT_NE( fault(), "" );
   EXPECT_FALSE( std::filesystem::exists( directory / "elsewhere" ) );
   std::filesystem::remove( path );

   { Fleet::SqliteMemory const memory( path ); }
   std::fstream newer( path, std::ios::in | std::ios::out | std::ios::binary );
   newer.seekp( 63 );  // the low byte of user_version
   newer.put( 9 );
   newer.close();
   EXPECT_EQ( fault(), path + " was written by a newer release" );
}

}  // namespace FleetTest
