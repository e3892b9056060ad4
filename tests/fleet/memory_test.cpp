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
