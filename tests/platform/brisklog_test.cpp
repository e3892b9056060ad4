#include "brisklog/Brisklog.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "RingTest.h"
#include "brisklog/Reader.h"
#include "kel/Assert.h"
#include "kel/Exception.h"
#include "records/IntfId.h"

namespace {

using Brisklog::Message;
using Brisklog::Reader;
using Brisklog::RingFile;
using Test::RingTest;
using Test::smallest;

enum class Colour : int8_t { red = -3 };
enum class Mask : uint64_t { top = uint64_t( 1 ) << 63 };

// A type with a name of its own, as interned ids are.
struct Port {
   int number;
};
constexpr std::string_view portNames[] = { "uplink", "downlink" };

}  // namespace

template<>
struct Brisklog::Arg<Port> : Brisklog::TextArg {
   static std::string_view text( Port port ) { return portNames[port.number]; }
};

namespace {

std::vector<Message> all( Reader & reader ) {
   std::vector<Message> messages;
   while( auto message = reader.next() ) messages.push_back( *message );
   return messages;
}

std::vector<Message> ringMessages() {
   Reader reader( Brisklog::ring() );
   auto messages = all( reader );
   EXPECT_FALSE( reader.damaged() );
   return messages;
}

// A process that writes until it is killed, at the latest by the end of this object or of this process.
class Writer {
 public:
   template<class Run>
   explicit Writer( Run run ) : pid_( fork() ) {
      if( pid_ != 0 ) return;
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      run();
      _exit( 1 );
   }
   Writer( Writer const & ) = delete;
   Writer & operator=( Writer const & ) = delete;
   ~Writer() {
      kill( pid_, SIGKILL );
      waitpid( pid_, nullptr, 0 );
   }

 private:
   pid_t const pid_;
};

// What a writer's message with this sequence number says.
std::string writersText( uint64_t i ) {
   return std::to_string( i ) + " " + std::string( i % 61, 'x' ) + " " + std::to_string( i * 3 );
}
void writeAsWriter( uint64_t i ) {
   char filling[61];
   std::memset( filling, 'x', sizeof filling );
   BRISKLOG( 3, "{} {} {}", i, std::string_view( filling, i % 61 ), i * 3 );
}

TEST_F( RingTest, everyArgumentTypePrintsItsValue ) {
   char const * const none = nullptr;
   char buffer[] = "buffer";
   BRISKLOG( 0, "no argument, {a brace}" );
   BRISKLOG( 1, "{} {} {}", int8_t( -5 ), uint8_t( 200 ), std::numeric_limits<int64_t>::min() );
   BRISKLOG( 3, "{},{},{}", std::numeric_limits<uint64_t>::max(), true, 123456789.0 );
   BRISKLOG( 4, "{}{}", 0.1, 2.5f );
   BRISKLOG( 8, "[{}][{}][{}][{}]", "literal", buffer, none, std::string_view( "view" ) );
   BRISKLOG( 3, "[{}][{}][{}]", std::string( "{}" ), Kel::String8( "counted" ), Kel::String8() );
   BRISKLOG( 3, "{} {} {}", Colour::red, Mask::top, Port{ 1 } );
   std::vector<std::pair<int, std::string>> seen;
   for( auto const & message : ringMessages() ) seen.emplace_back( message.level, message.text );
   EXPECT_EQ( seen, ( std::vector<std::pair<int, std::string>>{ { 0, "no argument, {a brace}" },
                                                                { 1, "-5 200 -9223372036854775808" },
                                                                { 3, "18446744073709551615,1,123456789" },
                                                                { 4, "0.12.5" },
                                                                { 8, "[literal][buffer][(null)][view]" },
                                                                { 3, "[{}][counted][]" },
                                                                { 3, "-3 9223372036854775808 downlink" } } ) );
}

// Names of interfaces are copied as they lie in memory, as every kept text is.
TEST_F( RingTest, textsAndNamesOfAnyLengthAreKeptUpToTheLongest ) {
   std::size_t const max = Brisklog::textBytesMax;
   std::pmr::monotonic_buffer_resource memory;
   for( std::size_t const length :
        std::initializer_list<std::size_t>{ 0, 1, 6, 7, 8, 15, 16, max - 1, max, max + 1, 5 * max } ) {
      std::string const text( length, 'x' );
      auto const kept = Brisklog::KeptText::copyOf( text, memory );
      EXPECT_EQ( kept.view(), text );
      BRISKLOG( 3, "<{}|{}|{}|{}>", text, Lumo::IntfId( text ), kept, 7 );
      std::string const shown = length > max ? std::string( max, 'x' ) + "..." : text;
      EXPECT_EQ( ringMessages().back().text, "<" + shown + "|" + shown + "|" + shown + "|7>" );
   }
   BRISKLOG( 3, "<{}>", Brisklog::KeptText() );
   EXPECT_EQ( ringMessages().back().text, "<>" );
}

TEST_F( RingTest, aDisabledLevelEvaluatesAndWritesNothing ) {
   int evaluations = 0;
   auto const write = [&] {
      BRISKLOG( 4, "four {}", ++evaluations );
      BRISKLOG( 8, "eight {}", ++evaluations );
   };
   Brisklog::levelsIs( { 0, 8 } );
   write();
   EXPECT_EQ( evaluations, 1 );
   Brisklog::levelsIs( {} );
   write();
   EXPECT_EQ( evaluations, 1 );
   ASSERT_EQ( ringMessages().size(), 1u );
   EXPECT_EQ( ringMessages()[0].text, "eight 1" );
}

TEST_F( RingTest, theTapSeesWhatTheReaderSees ) {
   std::vector<std::string> tapped;
   auto const line = []( Message const & m ) {
      return std::to_string( m.time ) + " " + std::to_string( m.level ) + " " + std::to_string( m.sequence ) + " " +
             m.text;
   };
   BRISKLOG( 1, "before" );
   Brisklog::tapIs( [&]( Message const & message ) { tapped.push_back( line( message ) ); } );
   clock->nowIs( 1001.5 );
   loop.turn();
   BRISKLOG( 8, "rate {} of {}", 1.5, "eth0" );
   Brisklog::tapIs( {} );
   BRISKLOG( 1, "after" );
   EXPECT_EQ( tapped, std::vector<std::string>{ "1001.500000 8 1 rate 1.5 of eth0" } );
   ASSERT_EQ( ringMessages().size(), 3u );
   EXPECT_EQ( line( ringMessages()[1] ), tapped[0] );
}

TEST_F( RingTest, aBlockTimerTellsItsMicroseconds ) {
   {
      Brisklog::BlockTimer const timer( "walk" );
      clock->nowIs( 1000.25 );
   }
   EXPECT_EQ( ringMessages().back().text, "walk: 250000" );
   EXPECT_EQ( ringMessages().back().level, 8 );
}

TEST_F( RingTest, aFailedAssertionIsTheLastMessageOfTheFile ) {
   EXPECT_DEATH(
      {
         Brisklog::ringIs( RingFile::create( path, smallest ) );
         BRISKLOG( 3, "going on" );
         KEL_ASSERT( path.empty() );
      },
      "Assertion failed: \"path.empty\\(\\)\"" );
   Reader reader( path );
   auto const messages = all( reader );
   ASSERT_EQ( messages.size(), 2u );
   EXPECT_EQ( messages[1].level, 0 );
   EXPECT_EQ( messages[1].text.rfind( "assertion failed: \"path.empty()\" at brisklog_test.cpp:", 0 ), 0u );
}

[[noreturn]] void mistaken() { throw Kel::RangeError( "no such VLAN" ); }

TEST_F( RingTest, anUncaughtExceptionIsTheLastMessageOfTheFile ) {
   auto const die = [&]() noexcept {
      Brisklog::ringIs( RingFile::create( path, smallest ) );
      mistaken();
   };
   EXPECT_EXIT( die(), testing::KilledBySignal( SIGABRT ), "Uncaught exception: no such VLAN" );
   Reader reader( path );
   auto const messages = all( reader );
   ASSERT_EQ( messages.size(), 1u );
   EXPECT_EQ( messages[0].level, 0 );
   EXPECT_EQ( messages[0].text, "uncaught exception: no such VLAN" );
}

// What a test has written, in order.
struct Written {
   std::string text;
   std::size_t bytes;  // of its record
};

std::size_t textBytes( std::string const & text ) { return ( 1 + text.size() + 7 ) / 8 * 8; }

Written writeRandomMessage( std::mt19937 & random, int i ) {
   std::string const a( random() % ( Brisklog::textBytesMax + 1 ), static_cast<char>( 'a' + i % 26 ) );
   std::string const b( random() % 7 == 0 ? random() % 100 : 0, 'z' );
   switch( random() % 3 ) {
      case 0: BRISKLOG( 3, "{}", i ); return { std::to_string( i ), 24 + 8 };
      case 1: BRISKLOG( 3, "{}{}", a, b ); return { a + b, 24 + textBytes( a ) + textBytes( b ) };
      default:
         BRISKLOG( 3, "{}{}{}{}{}{}", a, a, a, a, b, i );
         return { a + a + a + a + b + std::to_string( i ), 24 + 4 * textBytes( a ) + textBytes( b ) + 8 };
   }
}

// At any moment the ring holds the newest messages without a gap, and as many of them as fit beside the block that is
// given up ahead and what is left at the end of each block.
TEST_F( RingTest, theRingKeepsTheNewestMessagesOverManyLaps ) {
   auto const seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   for( std::size_t const ringBytes : { smallest, 4 * smallest } ) {
      Brisklog::ringIs( RingFile::anonymous( ringBytes ) );
      std::deque<Written> written;
      for( int i = 0; i < 20000; ++i ) {
         written.push_front( writeRandomMessage( random, i ) );
         if( random() % 64 != 0 && i != 19999 ) continue;
         auto const kept = ringMessages();
         ASSERT_LE( kept.size(), written.size() );
         ASSERT_EQ( kept.back().sequence, static_cast<uint64_t>( i ) );
         std::size_t bytes = 0;
         for( std::size_t k = 0; k < kept.size(); ++k ) {
            ASSERT_EQ( kept[kept.size() - 1 - k].text, written[k].text );
            bytes += written[k].bytes;
         }
         ASSERT_LE( bytes, ringBytes );
         std::size_t const largest = 24 + 4 * 120 + 104 + 8;
         if( kept.size() < written.size() ) {
            ASSERT_GT( bytes, ringBytes - ringBytes / 16 - 16 * largest );
         }
      }
   }
}

TEST_F( RingTest, aKilledProcessLeavesOnlyWholeMessagesUpToTheLast ) {
   for( int round = 0; round < 20; ++round ) {
      int progress[2];
      ASSERT_EQ( pipe( progress ), 0 );
      uint64_t told = 0;
      {
         Writer const writer( [&] {
            Brisklog::ringIs( RingFile::create( path, smallest ) );
            for( uint64_t i = 0;; ++i ) {
               writeAsWriter( i );
               if( i % 1000 == 999 && write( progress[1], &i, sizeof i ) < 0 ) return;
            }
         } );
         close( progress[1] );
         for( int i = 0; i < 20 + 7 * round; ++i ) {
            ASSERT_EQ( read( progress[0], &told, sizeof told ), ssize_t( sizeof told ) );
         }
      }
      while( read( progress[0], &told, sizeof told ) > 0 ) continue;
      close( progress[0] );

      Reader reader( path );
      auto const messages = all( reader );
      EXPECT_FALSE( reader.damaged() );
      ASSERT_GT( messages.size(), 200u );
      EXPECT_GE( messages.back().sequence, told );
      for( auto const & m : messages ) ASSERT_EQ( m.text, writersText( m.sequence ) );
   }
}

TEST_F( RingTest, readingWhileTheWriterRunsGivesNoBrokenMessage ) {
   Brisklog::ringIs( RingFile::create( path, smallest ) );
   Writer const writer( [] {
      for( uint64_t i = 0;; ++i ) writeAsWriter( i );
   } );
   std::size_t seen = 0;
   for( int i = 0; i < 500 || seen == 0; ++i ) {
      Reader reader( path );
      auto const messages = all( reader );
      for( auto const & m : messages ) ASSERT_EQ( m.text, writersText( m.sequence ) );
      EXPECT_FALSE( reader.damaged() );
      seen += messages.size();
   }
}

TEST_F( RingTest, aNewRingKeepsTheThreeBeforeIt ) {
   std::string const trace = folder + "/made/ring";  // in a directory that is not there yet
   auto const run = [&]( int number ) {
      Brisklog::ringIs( RingFile::create( trace, smallest + 1 ) );
      BRISKLOG( 3, "run {}", number );  // the same call site in each ring's own table
   };
   auto const shown = [&]( char const * more ) { return Reader( trace + more ).next().value().text; };
   for( int number = 1; number <= 2; ++number ) run( number );
   EXPECT_EQ( shown( "" ) + ", " + shown( ".1" ), "run 2, run 1" );
   // What a process leaves that dies while it makes one: of any length, but known by how it begins.
   for( std::string const & left : { std::string(), bytesOf( trace ).substr( 0, 8 ), bytesOf( trace ) } ) {
      fileIs( trace + ".new", left );
      run( 3 );
   }
   EXPECT_EQ( shown( "" ) + ", " + shown( ".1" ) + ", " + shown( ".2" ) + ", " + shown( ".3" ),
              "run 3, run 3, run 3, run 2" );
   std::filesystem::remove( trace + ".1" );
   run( 4 );  // into the gap
   EXPECT_EQ( shown( ".1" ) + ", " + shown( ".2" ) + ", " + shown( ".3" ), "run 3, run 3, run 2" );

   struct stat status = {};
   ASSERT_EQ( stat( ( folder + "/made" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777u, 0750u );
   ASSERT_EQ( stat( trace.c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777u, 0640u );
   EXPECT_GE( status.st_blocks * 512, status.st_size );  // none of it is left to be found room for
}

// Under any of its names: the file stays, and so does every ring.
TEST_F( RingTest, whatIsNoRingIsNeverMovedOrOverwritten ) {
   for( int run = 0; run < 4; ++run ) Brisklog::ringIs( RingFile::create( path, smallest ) );
   std::vector<std::string> const names = { path, path + ".1", path + ".2", path + ".3", path + ".new" };
   auto const images = [&] {
      std::vector<std::string> all;
      for( std::string const & name : names )
         all.push_back( std::filesystem::is_regular_file( name ) ? bytesOf( name ) : "" );
      return all;
   };
   std::string const elsewhere = folder + "/elsewhere";
   fileIs( elsewhere, bytesOf( path ) );
   std::function<void( std::string const & )> const others[] = {
      [&]( std::string const & name ) { fileIs( name, "a letter" ); },
      [&]( std::string const & name ) { fileIs( name, "brisk" ); },
      [&]( std::string const & name ) { std::filesystem::create_symlink( elsewhere, name ); },
      [&]( std::string const & name ) { std::filesystem::create_symlink( folder + "/none", name ); },
      [&]( std::string const & name ) { std::filesystem::create_directory( name ); },
      [&]( std::string const & name ) { ASSERT_EQ( mkfifo( name.c_str(), 0600 ), 0 ); },
   };
   for( std::string const & name : names ) {
      for( auto const & put : others ) {
         std::filesystem::rename( name == path + ".new" ? elsewhere : name, folder + "/aside" );
         put( name );
         auto const before = images();
         try {
            static_cast<void>( RingFile::create( path, smallest ) );
            ADD_FAILURE() << name;
         } catch( Brisklog::RingError const & error ) {
            EXPECT_NE( std::string( error.what() ).find( name + " is no ring trace" ), std::string::npos )
               << error.what();
         }
         EXPECT_TRUE( images() == before ) << name;
         EXPECT_EQ( std::filesystem::exists( path + ".new" ),
                    name == path + ".new" && std::filesystem::exists( name ) );
         EXPECT_FALSE( std::filesystem::exists( folder + "/none" ) );
         std::filesystem::remove( name );
         std::filesystem::rename( folder + "/aside", name == path + ".new" ? elsewhere : name );
      }
   }
}

// As on a full disk, and in a directory that cannot be written.
TEST_F( RingTest, whereThereIsNoRoomNothingChanges ) {
   Brisklog::ringIs( RingFile::create( path, smallest ) );
   std::string const before = bytesOf( path );
   auto const refused = [&]( std::string const & file ) -> std::string {
      try {
         static_cast<void>( RingFile::create( file, smallest ) );
         return "made";
      } catch( Brisklog::RingError const & error ) {
         return error.what();
      }
   };
   rlimit limit = {};
   ASSERT_EQ( getrlimit( RLIMIT_FSIZE, &limit ), 0 );
   rlimit const less = { smallest, limit.rlim_max };
   ASSERT_EQ( setrlimit( RLIMIT_FSIZE, &less ), 0 );
   auto const handler = signal( SIGXFSZ, SIG_IGN );
   std::string const noRoom = refused( path );
   signal( SIGXFSZ, handler );
   ASSERT_EQ( setrlimit( RLIMIT_FSIZE, &limit ), 0 );
   EXPECT_NE( noRoom.find( "allocating " ), std::string::npos ) << noRoom;
   EXPECT_FALSE( std::filesystem::exists( path + ".new" ) );
   EXPECT_FALSE( std::filesystem::exists( path + ".1" ) );
   EXPECT_EQ( bytesOf( path ), before );
   for( char const * where : { "/none/none/ring", "/ring/ring" } ) {
      EXPECT_NE( refused( folder + where ).find( where ), std::string::npos ) << refused( folder + where );
   }
}

TEST_F( RingTest, theBootOfARingIsKnown ) {
   Brisklog::ringIs( RingFile::create( path, smallest ) );
   EXPECT_TRUE( Reader( path ).thisBoot() );
   std::string const whole = bytesOf( path );
   uint64_t const other = ~Brisklog::presentBoot();
   uint64_t const notKnown = 0;
   for( uint64_t const boot : { other, notKnown } ) {
      std::string bytes = whole;
      std::memcpy( bytes.data() + offsetof( Brisklog::FileHeader, boot ), &boot, sizeof boot );
      fileIs( folder + "/other", bytes );
      EXPECT_FALSE( Reader( folder + "/other" ).thisBoot() ) << boot;
   }
}

TEST_F( RingTest, aFullFormatTableStillShowsThatSomethingWasWritten ) {
   Brisklog::ArgType const types[] = { Brisklog::ArgType::unsignedWord };
   for( int i = 0; i < 5000; ++i ) {
      static_cast<void>( Brisklog::ring().formatNumber( { types, std::to_string( i ) + " {}" } ) );
   }
   BRISKLOG( 1, "a format that comes too late by {} of {} bytes", 1, 2 );
   ASSERT_EQ( ringMessages().size(), 1u );
   EXPECT_EQ( ringMessages()[0].level, 1 );
   EXPECT_NE( ringMessages()[0].text.find( "no place" ), std::string::npos );
}

TEST_F( RingTest, theSameFormatFromAReloadedModuleTakesNoNewPlace ) {
   Brisklog::ArgType const types[] = { Brisklog::ArgType::unsignedWord };
   Brisklog::ArgType const others[] = { Brisklog::ArgType::text };
   auto const number = Brisklog::ring().formatNumber( { types, "loaded {}" } );
   EXPECT_EQ( Brisklog::ring().formatNumber( { types, std::string( "loaded {}" ) } ), number );
   EXPECT_NE( Brisklog::ring().formatNumber( { others, "loaded {}" } ), number );
}

TEST_F( RingTest, whatIsNoRingIsRefused ) {
   {
      Brisklog::ringIs( RingFile::create( path, smallest ) );
      BRISKLOG( 3, "whole" );
   }
   std::string const whole = bytesOf( path );
   auto const reason = [&]( std::string const & bytes ) -> std::string {
      fileIs( folder + "/bad", bytes );
      try {
         Reader const reader( folder + "/bad" );
         return "accepted";
      } catch( Brisklog::RingError const & error ) {
         return error.what();
      }
   };
   auto const with = [&]( std::size_t at, uint64_t word ) {
      std::string bytes = whole;
      return bytes.replace( at, sizeof word, reinterpret_cast<char const *>( &word ), sizeof word );
   };
   struct Case {
      std::string bytes;
      char const * says;
   } const cases[] = {
      { "", "too short" },
      { whole.substr( 0, 63 ), "too short" },
      { std::string( 100000, 'g' ), "not a ring" },
      { whole.substr( 0, whole.size() - 1 ), "size is wrong" },
      { whole + "x", "size is wrong" },
      { with( offsetof( Brisklog::FileHeader, version ), 77 ), "version 77" },
      { with( offsetof( Brisklog::FileHeader, ringBytes ), 4095 ), "sizes" },
      { with( offsetof( Brisklog::FileHeader, ringBytes ), uint64_t( 1 ) << 62 ), "sizes" },
      { with( offsetof( Brisklog::FileHeader, head ), uint64_t( 1 ) << 40 ), "positions" },
      { with( offsetof( Brisklog::FileHeader, head ), 33 ), "positions" },
      { whole, "accepted" },
   };
   for( auto const & [bytes, says] : cases ) {
      EXPECT_NE( reason( bytes ).find( says ), std::string::npos ) << says << " expected: " << reason( bytes );
   }
   EXPECT_THROW( Reader( folder + "/absent" ), Brisklog::RingError );
   EXPECT_THROW( Reader( folder + "/" ), Brisklog::RingError );
}

}  // namespace
