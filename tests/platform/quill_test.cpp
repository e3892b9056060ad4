#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <utility>

#include "quill/EthIntfCounterReaderSm.h"

namespace {

using Brim::MaybeU63;
using Interface::EthIntfCounterReaderSm;
using Interface::IntfStatistics;
using Interface::IntfCounterMasquerade::currentName;
using Interface::IntfCounterMasquerade::IntfCounter;
using Interface::IntfCounterMasquerade::KeptCounter;
using KelQuill::CounterTable;
using KelQuill::CounterWriter;
using KelQuill::TableError;
using Lumo::IntfId;
using testing::HasSubstr;
using testing::ThrowsMessage;

class TableTest : public ::testing::Test {
 protected:
   TableTest() {
      char name[] = "/tmp/quill_test.XXXXXX";
      folder = ::mkdtemp( name );
      path = folder + "/counters";
   }
   ~TableTest() override { std::filesystem::remove_all( folder ); }

   std::string bytes() const {
      std::ifstream in( path, std::ios::binary );
      return { std::istreambuf_iterator<char>( in ), {} };
   }
   void fileIs( std::string const & content ) const { std::ofstream( path, std::ios::binary ) << content; }

   std::string folder;
   std::string path;
};

template<class T>
T at( std::string const & bytes, std::size_t offset ) {
   T value;
   std::memcpy( &value, bytes.data() + offset, sizeof value );
   return value;
}

// Other programs read the file by its documented offsets.
TEST_F( TableTest, theFileHoldsEachFieldWhereTheLayoutSays ) {
   auto const table = CounterTable::create( path, 4 );
   table->rowIs( 0, "Ethernet1" );
   table->rowIs( 1, "Ethernet2" );
   table->readIs( 1, { 5, MaybeU63::none() }, 11.5 );
   table->readIs( 1, { 5, MaybeU63::none(), true }, 12.5 );
   table->rowDel( 0 );
   std::string const file = bytes();
   ASSERT_EQ( file.size(), 64u + 4 * 128 );
   EXPECT_EQ( file.substr( 0, 8 ), std::string( "KQCTRS2\0", 8 ) );
   EXPECT_EQ( at<uint32_t>( file, 8 ), 128u );
   EXPECT_EQ( at<uint32_t>( file, 12 ), 4u );
   EXPECT_EQ( at<uint64_t>( file, 16 ), 2u );
   EXPECT_EQ( at<uint32_t>( file, 24 ), 3u );
   EXPECT_EQ( at<uint64_t>( file, 64 + 8 ), 0u );  // given up
   std::size_t const row = 64 + 128;
   EXPECT_EQ( at<uint64_t>( file, row ) % 2, 0u );
   EXPECT_EQ( at<uint64_t>( file, row + 8 ), 1u );
   EXPECT_EQ( at<uint64_t>( file, row + 16 ), 5u );
   EXPECT_EQ( at<uint64_t>( file, row + 24 ) >> 63, 1u );
   EXPECT_EQ( at<double>( file, row + 32 ), 12.5 );
   EXPECT_EQ( at<uint64_t>( file, row + 40 ), 1u );
   EXPECT_STREQ( file.data() + row + 48, "Ethernet2" );
}

// A row that goes from one name to the other and back with every step; what is odd belongs to the second.
std::string const rowNames[] = { std::string( 60, 'e' ), std::string( 60, 'o' ) };

void step( CounterTable & table, uint64_t octets ) {
   table.rowDel( 0 );
   table.rowIs( 0, rowNames[octets % 2], octets );
   table.readIs( 0, { octets, octets }, static_cast<double>( octets ) );
}

// Name and counters are of one step, or of a row that has only its name yet.
bool whole( std::optional<CounterTable::Entry> const & entry ) {
   if( !entry ) return true;
   auto const & row = entry->counters;
   uint64_t const octets = row.readTime == 0 ? 0 : row.restarts;
   return entry->name == rowNames[row.restarts % 2] && row.inOctets == octets && row.outOctets == octets &&
          row.readTime == static_cast<double>( octets );
}

// Does `work` again and again and interrupts it at whatever instruction with `meanwhile`, 3000 times: each time anew
// when the last one is over, so that it goes on in between however long that takes.
void interrupted( std::function<void()> const & work, std::function<void()> const & meanwhile ) {
   static std::function<void()> const * handler;
   static volatile sig_atomic_t left;
   static itimerval const soon{ .it_interval = {}, .it_value = { .tv_sec = 0, .tv_usec = 30 } };
   handler = &meanwhile;
   left = 3000;
   auto const former = ::signal( SIGALRM, []( int ) {
      ( *handler )();
      left = left - 1;
      if( left > 0 ) ::setitimer( ITIMER_REAL, &soon, nullptr );
   } );
   ::setitimer( ITIMER_REAL, &soon, nullptr );
   while( left > 0 ) work();
   ::signal( SIGALRM, former );
}

TEST_F( TableTest, aWriteInTheMiddleOfAReadIsNoticed ) {
   auto const table = CounterTable::create( "", 1 );
   table->rowIs( 0, rowNames[0] );
   uint64_t octets = 0;
   int torn = 0;
   interrupted(
      [&] {
         auto const counters = CounterTable::read( table->row( 0 ) );
         torn += !counters || counters->inOctets != counters->outOctets ||
                 ( counters->readTime != 0 && counters->inOctets != counters->restarts );
         torn += !whole( table->entry( 0 ) );
      },
      [&] { step( *table, ++octets ); } );
   EXPECT_EQ( torn, 0 );
}

TEST_F( TableTest, aRowThatIsHalfWrittenSaysSo ) {
   auto const table = CounterTable::create( "", 1 );
   table->rowIs( 0, rowNames[0] );
   uint64_t octets = 0;
   int torn = 0;
   int readable = 0;
   interrupted( [&] { step( *table, ++octets ); },
                [&] {
                   if( table->row( 0 ).sequence % 2 != 0 ) return;
                   ++readable;
                   torn += !whole( table->entry( 0 ) );
                } );
   EXPECT_EQ( torn, 0 );
   EXPECT_GT( readable, 0 );
}

TEST_F( TableTest, aRowWhoseWriterDiedInTheMiddleOrThatWasNeverReadHasNoCounters ) {
   auto const table = CounterTable::create( path, 3 );
   table->rowIs( 0, "dead" );
   table->rowIs( 1, "alive" );
   table->readIs( 1, { 5, 6 }, 1000 );
   table->rowIs( 2, "unread" );
   std::fstream( path, std::ios::in | std::ios::out | std::ios::binary ).seekp( 64 ).put( 1 );
   auto const read = CounterTable::openReadOnly( path );
   Kel::ActivityLoop loop{ Kel::Ptr<Kel::Clock>( new Kel::VirtualClock( 1000 ) ) };
   Kel::Ptr<KelQuill::EntityManager> const tables( new KelQuill::EntityManager( *read ) );
   auto const statistics = [&]( uint32_t row ) { return IntfCounter( currentName(), tables, row ).statistics(); };
   EXPECT_EQ( statistics( 0 ), ( IntfStatistics{ MaybeU63::none(), MaybeU63::none() } ) );
   EXPECT_EQ( statistics( 1 ), ( IntfStatistics{ 5, 6 } ) );
   EXPECT_EQ( statistics( 2 ), ( IntfStatistics{ MaybeU63::none(), MaybeU63::none() } ) );
}

// What is written without looking anything up is only what can be told from the row.
TEST_F( TableTest, octetsThatHaveGrownAreWrittenAndOthersLeftAlone ) {
   auto const table = CounterTable::create( path );
   table->rowIs( 0, "Ethernet1", 3 );
   EXPECT_FALSE( table->grewTo( 0, 5, 5, 10 ) ) << "never read";
   table->readIs( 0, { 100, 200 }, 20 );
   constexpr uint64_t highest = ( uint64_t{ 1 } << 63 ) - 1;
   for( auto const & [in, out] : std::vector<std::pair<uint64_t, uint64_t>>{
           { 99, 300 }, { 300, 199 }, { highest + 1, 300 }, { 300, highest + 1 }, { ~uint64_t{}, ~uint64_t{} } } ) {
      EXPECT_FALSE( table->grewTo( 0, in, out, 30 ) ) << in << ", " << out;
      EXPECT_EQ( table->entry( 0 )->counters.inOctets, 100 );
      EXPECT_EQ( table->entry( 0 )->counters.readTime, 20 );
   }
   EXPECT_TRUE( table->grewTo( 0, 100, 200, 30 ) ) << "at rest";
   EXPECT_TRUE( table->grewTo( 0, highest, highest, 40 ) );
   auto const last = table->entry( 0 )->counters;
   EXPECT_EQ( last.inOctets, highest );
   EXPECT_EQ( last.outOctets, highest );
   EXPECT_EQ( last.readTime, 40 );
   EXPECT_EQ( last.restarts, 3u );
   table->readIs( 0, { MaybeU63::none(), 1 }, 50 );
   EXPECT_FALSE( table->grewTo( 0, 5, 5, 60 ) ) << "from no value";
}

TEST_F( TableTest, aNewWriterTakesThePlaceOfTheOldOne ) {
   auto const old = CounterTable::create( path );
   old->rowIs( 0, "old" );
   auto const reader = CounterTable::openReadOnly( path );
   auto const next = CounterTable::create( path );
   next->rowIs( 0, "new" );
   EXPECT_EQ( reader->entry( 0 )->name, "old" );
   EXPECT_EQ( CounterTable::openReadOnly( path )->entry( 0 )->name, "new" );
}

TEST_F( TableTest, whatIsNoTableIsRefusedWithTheReason ) {
   CounterTable::create( path, 4 )->rowIs( 0, "Ethernet1" );
   std::string const whole = bytes();
   auto const with = [&whole]( std::size_t offset, char byte ) {
      std::string changed = whole;
      changed[offset] = byte;
      return changed;
   };
   std::map<std::string, std::string> const contents{
      { "", "too short" },
      { whole.substr( 0, 63 ), "too short" },
      { whole.substr( 0, whole.size() - 1 ), "shorter than its header" },
      { with( 15, 1 ), "shorter than its header" },
      { std::string( 4096, 'x' ), "does not begin" },
      { with( 6, '1' ), "of version 1, and version 2 is wanted" },
      { with( 6, 'x' ), "does not begin" },
      { with( 7, '0' ), "does not begin" },
      { with( 8, 64 ), "rows have another size" },
      { with( 16, 5 ), "more rows than it has" },
      { with( 23, 1 ), "more rows than it has" } };
   auto const open = [this] { (void)CounterTable::openReadOnly( path ); };
   for( auto const & [content, why] : contents ) {
      fileIs( content );
      EXPECT_THAT( open, ThrowsMessage<TableError>( HasSubstr( why ) ) );
   }
   fileIs( whole );
   EXPECT_NO_THROW( open() );
   std::filesystem::remove( path );
   EXPECT_THAT( open, ThrowsMessage<TableError>( HasSubstr( "No such file" ) ) );
   std::filesystem::create_directory( path );
   EXPECT_THAT( open, ThrowsMessage<TableError>( HasSubstr( "no file" ) ) );
   std::filesystem::remove( path );
   ASSERT_EQ( ::mkfifo( path.c_str(), 0600 ), 0 );
   EXPECT_THAT( open, ThrowsMessage<TableError>( HasSubstr( "no file" ) ) );
}

TEST_F( TableTest, aTableThatCannotBeMadeSaysWhy ) {
   EXPECT_THAT( [this] { (void)CounterTable::create( folder + "/missing/counters" ); },
                ThrowsMessage<TableError>( HasSubstr( "missing/counters" ) ) );
}

TEST_F( TableTest, aRowThatIsRefusedLeavesTheTableAsItWas ) {
   auto const table = CounterTable::create( "", 2 );
   EXPECT_THROW( table->rowIs( 0, std::string( 64, 'n' ) ), TableError );
   EXPECT_EQ( table->rows(), 0u );
   EXPECT_EQ( table->generation(), 0u );
   std::string const longest( 63, 'n' );
   table->rowIs( 0, longest );
   table->rowIs( 1, "" );
   EXPECT_EQ( table->entry( 0 )->name, longest );
   EXPECT_THROW( table->rowIs( 2, "third" ), TableError );
   table->rowDel( 0 );
   table->rowIs( 0, "third" );
   EXPECT_EQ( table->entry( 0 )->name, "third" );
}

TEST_F( TableTest, aMillionRowsTakeMemoryOnlyAsTheyCome ) {
   auto const table = CounterTable::create( path );
   struct stat status {};
   ASSERT_EQ( ::stat( path.c_str(), &status ), 0 );
   EXPECT_LT( status.st_blocks * 512, 1 << 20 );
   for( uint32_t i = 0; i < CounterTable::capacityMax; ++i ) table->rowIs( i, "row" + std::to_string( i ) );
   table->readIs( CounterTable::capacityMax - 1, { 1, 2 }, 3 );
   auto const read = CounterTable::openReadOnly( path );
   ASSERT_EQ( read->rows(), CounterTable::capacityMax );
   EXPECT_EQ( read->entry( 1000000 )->name, "row1000000" );
   EXPECT_EQ( read->entry( CounterTable::capacityMax - 1 )->counters.outOctets, MaybeU63( 2 ) );
   EXPECT_THROW( table->rowIs( CounterTable::capacityMax, "one more" ), TableError );
}

// On a file system of its own with 256 KiB. In a child, whose mounts end with it.
TEST_F( TableTest, aFullFileSystemIsAnErrorAndNotTheEndOfTheProcess ) {
   enum { noNamespace = 2, refusedInTime, neverRefused };
   auto const fill = [this] {
      bool const own = ::unshare( CLONE_NEWNS ) == 0 || ::unshare( CLONE_NEWUSER | CLONE_NEWNS ) == 0;
      if( !own || ::mount( "none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr ) != 0 ||
          ::mount( "tmpfs", folder.c_str(), "tmpfs", 0, "size=256k" ) != 0 )
         ::_exit( noNamespace );
      auto const table = CounterTable::create( path );
      try {
         for( uint32_t i = 0; i < 10000; ++i ) table->rowIs( i, "row" );
      } catch( TableError const & ) {
         ::_exit( table->rows() >= 512 ? refusedInTime : neverRefused );
      }
      ::_exit( neverRefused );
   };
   pid_t const child = ::fork();
   if( child == 0 ) fill();
   int status = 0;
   ::waitpid( child, &status, 0 );
   ASSERT_TRUE( WIFEXITED( status ) ) << "signal " << WTERMSIG( status );
   if( WEXITSTATUS( status ) == noNamespace ) GTEST_SKIP() << "the kernel refuses a mount namespace";
   EXPECT_EQ( WEXITSTATUS( status ), refusedInTime );
}

// A host that counts octets per interface, the table between, and a plug-in's reader.
class ReaderStory : public ::testing::Test {
 protected:
   ReaderStory() {
      tables->refresherIs( [this]( KelQuill::Rows rows ) {
         ++refreshes;
         for( auto const & [intf, octets] : source ) {
            if( writer.wants( intf, rows ) ) writer.readIs( intf, { octets.inOctets, octets.outOctets } );
         }
      } );
   }
   ~ReaderStory() override { reader->prepareToDie(); }

   void startReader() { reader->handleInitialized(); }
   void octets( char const * intf, MaybeU63 in, MaybeU63 out ) { source[IntfId( intf )] = { in, out }; }
   IntfStatistics current( char const * intf ) const {
      auto const counter = reader->allEthIntfCounterPtrDir()->currentStatistics( IntfId( intf ) );
      return counter ? counter->statistics() : IntfStatistics{};
   }
   bool hasEntry( char const * intf ) const {
      return reader->allEthIntfCounterPtrDir()->currentStatistics( IntfId( intf ) ) != nullptr;
   }
   CounterTable::LastRead row( char const * intf ) const {
      return reader->allEthIntfCounterPtrDir()->currentStatistics( IntfId( intf ) )->lastRead().value();
   }
   void turnAt( double time, std::function<void()> const & work ) {
      loop.runUntil( *clock, time );
      loop.turn( work );
   }

   std::map<IntfId, IntfStatistics> source;
   int refreshes = 0;
   Kel::Ptr<Kel::VirtualClock> const clock{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop{ clock };
   Kel::Ptr<Kel::Dir> const statusDir{ new Kel::Dir( "writerStatus" ) };
   CounterWriter writer{ statusDir, "" };
   Kel::Ptr<KelQuill::EntityManager> const tables{ new KelQuill::EntityManager( writer.table() ) };
   Kel::Ptr<EthIntfCounterReaderSm> const reader{ new EthIntfCounterReaderSm( tables, statusDir ) };
};

TEST_F( ReaderStory, aTurnIsOneSnapshot ) {
   writer.rowIs( IntfId( "Ethernet1" ) );
   writer.rowIs( IntfId( "Ethernet2" ) );
   startReader();
   loop.turn();
   EXPECT_EQ( refreshes, 0 );  // nothing is read while nobody asks
   octets( "Ethernet2", 5, 5 );
   loop.turn( [&] {
      (void)current( "Ethernet1" );
      octets( "Ethernet2", 6, 6 );  // later in the turn
      EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 5, 5 } ) );
   } );
   EXPECT_EQ( refreshes, 1 );
   loop.turn( [&] { EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 6, 6 } ) ); } );
   EXPECT_EQ( refreshes, 2 );
}

// Its zeros as the first sample would make the second an enormous rate.
TEST_F( ReaderStory, anInterfaceThatAppearsAfterTheTurnsSnapshotDoesNotCountFromZero ) {
   writer.rowIs( IntfId( "Ethernet1" ) );
   startReader();
   octets( "Ethernet1", 1, 1 );
   octets( "Ethernet2", 1000000, 2000000 );
   loop.turn( [&] {
      (void)current( "Ethernet1" );
      writer.rowIs( IntfId( "Ethernet2" ) );
      EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 1000000, 2000000 } ) );
      (void)current( "Ethernet2" );
   } );
   EXPECT_EQ( refreshes, 2 );
   // One that the source does not know is no reason to ask it again and again.
   loop.turn( [&] {
      writer.rowIs( IntfId( "Ethernet3" ) );
      for( int i = 0; i < 5; ++i ) (void)current( "Ethernet3" );
   } );
   EXPECT_EQ( refreshes, 3 );
}

TEST_F( ReaderStory, whoKeepsACounterFollowsItsInterfaceToAnotherRow ) {
   writer.rowIs( IntfId( "Ethernet1" ) );
   startReader();
   octets( "Ethernet1", 1, 2 );
   octets( "Ethernet2", 5, 6 );
   KeptCounter kept;
   auto const & directory = *reader->allEthIntfCounterPtrDir();
   auto const read = [&] { return kept.statistics( directory, IntfId( "Ethernet1" ) ); };
   loop.turn( [&] { EXPECT_EQ( read(), ( IntfStatistics{ 1, 2 } ) ); } );
   writer.rowDel( IntfId( "Ethernet1" ) );
   EXPECT_FALSE( kept.isIn( directory, IntfId( "Ethernet1" ) ) );
   EXPECT_EQ( read(), ( IntfStatistics{ MaybeU63::none(), MaybeU63::none() } ) );
   writer.rowIs( IntfId( "Ethernet2" ) );  // where the other was
   writer.rowIs( IntfId( "Ethernet1" ) );
   loop.turn( [&] { EXPECT_EQ( read(), ( IntfStatistics{ 1, 2 } ) ); } );
}

// Octets that stand still may only be unread. The time tells.
TEST_F( ReaderStory, onlyAReadOfItsInterfaceMovesARowsTime ) {
   for( char const * intf : { "Ethernet1", "Ethernet2" } ) {
      writer.rowIs( IntfId( intf ) );
      octets( intf, 7, 7 );
   }
   startReader();
   EXPECT_EQ( row( "Ethernet1" ).readTime, 0 );
   turnAt( 1010, [&] { (void)current( "Ethernet1" ); } );
   EXPECT_EQ( row( "Ethernet2" ).readTime, 1010 );
   source.erase( IntfId( "Ethernet2" ) );
   turnAt( 1020, [&] { EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 7, 7 } ) ); } );
   EXPECT_EQ( row( "Ethernet1" ).readTime, 1020 );
   EXPECT_EQ( row( "Ethernet2" ).readTime, 1010 );
   turnAt( 1030, [&] { EXPECT_EQ( row( "Ethernet1" ).readTime, 1020 ); } );
   EXPECT_EQ( refreshes, 2 );  // who only looks at the rows has nothing read
}

// What was sampled before the second refresh went by the octets of an earlier turn.
TEST_F( ReaderStory, aRowThatWasUnreadWhenItWasSampledStaysSoForTheTurn ) {
   writer.rowIs( IntfId( "Ethernet1" ) );
   octets( "Ethernet1", 1, 1 );
   startReader();
   turnAt( 1010, [&] { (void)current( "Ethernet1" ); } );
   source.erase( IntfId( "Ethernet1" ) );
   turnAt( 1020, [&] {
      (void)current( "Ethernet1" );
      octets( "Ethernet1", 9, 9 );
      octets( "Ethernet2", 2, 2 );
      writer.rowIs( IntfId( "Ethernet2" ) );
      EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 2, 2 } ) );
      EXPECT_EQ( current( "Ethernet1" ), ( IntfStatistics{ 1, 1 } ) );
   } );
   EXPECT_EQ( row( "Ethernet1" ).readTime, 1010 );
   EXPECT_EQ( row( "Ethernet2" ).readTime, 1020 );
   turnAt( 1030, [&] { EXPECT_EQ( current( "Ethernet1" ), ( IntfStatistics{ 9, 9 } ) ); } );
   EXPECT_EQ( row( "Ethernet1" ).readTime, 1030 );
}

TEST_F( ReaderStory, aRestartMarksTheRowForGood ) {
   IntfId const intf( "Ethernet1" );
   writer.rowIs( intf );
   startReader();
   loop.turn();
   auto const restartsAfter = [&]( bool restarted ) {
      writer.readIs( intf, { 1, 1, restarted } );
      return row( "Ethernet1" ).restarts;
   };
   EXPECT_EQ( restartsAfter( true ), 0u );  // the first read has nothing before it
   EXPECT_EQ( restartsAfter( true ), 1u );
   EXPECT_EQ( restartsAfter( false ), 1u );
   EXPECT_EQ( restartsAfter( true ), 2u );
   writer.rowDel( intf );
   writer.rowIs( IntfId( "Ethernet2" ) );  // in its row
   EXPECT_EQ( row( "Ethernet2" ).restarts, 0u );
   writer.rowIs( intf );
   EXPECT_EQ( row( "Ethernet1" ).restarts, 3u );
   EXPECT_EQ( row( "Ethernet1" ).readTime, 0 );
   EXPECT_EQ( restartsAfter( true ), 3u );
   EXPECT_EQ( restartsAfter( true ), 4u );
}

// Answers changes of the rows with changes of its own, one answer for each, ahead of whoever watches after it.
class Meddler final : public KelQuill::WriterStatus::NotifieeConst {
 public:
   explicit Meddler( Kel::Ptr<Kel::Dir> const & statusDir ) {
      notifierIs( Kel::dynamicPtrCast<KelQuill::WriterStatus const>( statusDir->entityRef( "ethIntfCounter" ) ) );
   }
   void onGeneration() override {
      if( answers.empty() ) return;
      auto const answer = answers.front();
      answers.pop_front();
      answer();
   }

   std::deque<std::function<void()>> answers;
};

TEST_F( ReaderStory, changesMadeInAnswerToAChangeAreNotMissed ) {
   for( char const * intf : { "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4" } ) writer.rowIs( IntfId( intf ) );
   octets( "Ethernet2", 2, 2 );
   Meddler meddler( statusDir );
   startReader();
   meddler.answers = { [this] { writer.rowDel( IntfId( "Ethernet3" ) ); } };
   writer.rowDel( IntfId( "Ethernet4" ) );
   EXPECT_FALSE( hasEntry( "Ethernet3" ) );
   EXPECT_FALSE( hasEntry( "Ethernet4" ) );
   // The reader is told when Ethernet2 stands in the row that Ethernet1 had.
   meddler.answers = { [this] { writer.rowDel( IntfId( "Ethernet1" ) ); },
                       [this] { writer.rowIs( IntfId( "Ethernet2" ) ); } };
   writer.rowDel( IntfId( "Ethernet2" ) );
   EXPECT_FALSE( hasEntry( "Ethernet1" ) );
   ASSERT_TRUE( hasEntry( "Ethernet2" ) );
   loop.turn( [&] { EXPECT_EQ( current( "Ethernet2" ), ( IntfStatistics{ 2, 2 } ) ); } );
}

// Whatever comes and goes, the directory holds the interfaces that have rows, each with its own counters.
TEST_F( ReaderStory, randomRowsAgreeWithAModel ) {
   auto const seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   startReader();
   auto const & entries = *reader->allEthIntfCounterPtrDir();
   for( int round = 0; round < 400; ++round ) {
      for( int i = 0; i < 5; ++i ) {
         IntfId const intf( "Ethernet" + std::to_string( random() % 40 ) );
         bool const present = random() % 2 == 0;
         present ? writer.rowIs( intf ) : writer.rowDel( intf );
         if( !present ) source.erase( intf );
         if( present ) source[intf] = { random(), random() };
      }
      loop.turn( [&] {
         ASSERT_EQ( entries.intfCounterDirs(), source.size() );
         for( auto const & [intf, octets] : source ) {
            auto const counter = entries.currentStatistics( intf );
            ASSERT_TRUE( counter ) << intf;
            ASSERT_EQ( counter->statistics(), octets ) << intf;
         }
      } );
   }
   EXPECT_LE( writer.table().rows(), 40u );  // rows that were given up are used again
}

}  // namespace
