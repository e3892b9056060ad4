// Standard error that nobody reads, on every kind of file that a service is given for it.
#include "log/StandardError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "kel/Assert.h"
#include "kel/Clock.h"
#include "loop/AsioLoop.h"

namespace Host {
namespace {

// A file to write, and its other end.
struct Ends {
   int reader = -1;
   int writer = -1;
   ~Ends() {
      close( reader );
      close( writer );
   }
};

void makePipe( Ends & ends ) {
   int fds[2];
   ASSERT_EQ( pipe( fds ), 0 );
   ends.reader = fds[0];
   ends.writer = fds[1];
}
void makeSocket( Ends & ends ) {
   int fds[2];
   ASSERT_EQ( socketpair( AF_UNIX, SOCK_STREAM, 0, fds ), 0 );
   ends.reader = fds[0];
   ends.writer = fds[1];
}
void makeTerminal( Ends & ends ) {
   termios raw{};
   cfmakeraw( &raw );
   ASSERT_EQ( openpty( &ends.reader, &ends.writer, nullptr, &raw, nullptr ), 0 );
}

struct UnreadKind {
   char const * name;
   void ( *make )( Ends & ends );
   bool openedAgain = true;  // it can be, as a pipe of another user cannot
};

// Empty when there is nothing for a moment.
std::string readSome( int fd ) {
   pollfd ready{ fd, POLLIN, 0 };
   char some[4096];
   ssize_t const bytes = poll( &ready, 1, 50 ) > 0 ? read( fd, some, sizeof some ) : 0;
   return { some, static_cast<std::size_t>( bytes > 0 ? bytes : 0 ) };
}

std::string readAll( int fd ) {
   std::string all;
   for( std::string some = readSome( fd ); !some.empty(); some = readSome( fd ) ) all += some;
   return all;
}

// What comes through a terminal comes when the kernel has had the time.
std::string readUntil( int fd, std::string_view end ) {
   std::string all;
   for( int attempt = 0; attempt < 400 && !all.ends_with( end ); ++attempt ) all += readSome( fd );
   return all;
}

std::string lineOf( int number ) { return "line " + std::to_string( number ) + " " + std::string( 90, '.' ) + "\n"; }

}  // namespace

class UnreadError : public ::testing::TestWithParam<UnreadKind> {
 protected:
   void SetUp() override {
      ASSERT_NO_FATAL_FAILURE( GetParam().make( ends ) );
      rlimit limit = {};
      ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &limit ), 0 );
      rlimit const meanwhile = { GetParam().openedAgain ? limit.rlim_cur : 0, limit.rlim_max };
      ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &meanwhile ), 0 );
      error = std::make_unique<StandardError>( ends.writer );
      ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &limit ), 0 );
   }

   Ends ends;
   std::unique_ptr<StandardError> error;
};

TEST_P( UnreadError, isNeverWaitedForAndSaysWhatIsMissing ) {
   alarm( 100 );  // where it is waited for, this would never end
   int const lines = 20000;
   std::string told;
   for( int i = 0; i < lines; ++i ) std::cerr << lineOf( i );
   std::cerr << "\n";  // so short that it might slip in, and is one of those that are not there
   EXPECT_TRUE( error->waits() );
   while( error->waits() ) {
      told += readSome( ends.reader );
      error->writeOn();
   }
   std::fprintf( stderr, "%s and %s\n", "then", "C" );
   std::cerr << "half " << 1 << std::flush << " line";
   error.reset();
   told += readUntil( ends.reader, "half 1 line" );
   // Those that were taken, without a gap, then how many were not.
   int taken = 0;
   std::size_t at = 0;
   for( ; told.compare( at, lineOf( taken ).size(), lineOf( taken ) ) == 0; ++taken ) at += lineOf( taken ).size();
   EXPECT_GT( at, StandardError::waitingMax - 200 );
   EXPECT_LT( taken, lines );
   EXPECT_EQ( told.substr( at ), "maintd: " + std::to_string( lines + 1 - taken ) +
                                    " lines dropped, because standard error was not read\nthen and C\nhalf 1 line" );
   EXPECT_EQ( fcntl( ends.writer, F_GETFL ) & O_NONBLOCK, 0 );  // who shares it has it as it was
   alarm( 0 );
}

TEST_P( UnreadError, doesNotEndWhenItsReaderHasGone ) {
   signal( SIGPIPE, SIG_IGN );
   close( std::exchange( ends.reader, -1 ) );
   for( int i = 0; i < 2000; ++i ) std::cerr << lineOf( i );
   EXPECT_TRUE( error->waits() );
   EXPECT_TRUE( std::cerr.good() );
   error.reset();
   signal( SIGPIPE, SIG_DFL );
}

INSTANTIATE_TEST_SUITE_P( StandardError, UnreadError,
                          ::testing::Values( UnreadKind{ "pipe", makePipe },
                                             UnreadKind{ "pipeOfAnother", makePipe, false },
                                             UnreadKind{ "socket", makeSocket },
                                             UnreadKind{ "terminal", makeTerminal } ),
                          []( auto const & tested ) { return tested.param.name; } );

TEST( StandardError, isWrittenOnByTheLoopWhenItIsReadAgain ) {
   Kel::ActivityLoop activity( Kel::Ptr<Kel::Clock>( new Kel::RealClock ) );
   AsioLoop loop( activity );
   Ends ends;
   makePipe( ends );
   StandardError error( ends.writer );
   StandardErrorRetry const retry( loop, error );
   for( int round = 0; round < 2; ++round ) {
      while( !error.waits() ) std::cerr << lineOf( 0 );
      std::cerr << "the last\n";
      std::string told = readAll( ends.reader );
      loop.io().restart();
      loop.io().run_for( std::chrono::seconds( 10 ) );  // until nothing waits, which is sooner
      told += readAll( ends.reader );
      EXPECT_EQ( told.substr( told.size() - 9 ), "the last\n" );
   }
}

TEST( StandardError, aLineWithoutEndTakesNoMoreThanTheRoomThereIs ) {
   Ends ends;
   makePipe( ends );
   StandardError error( ends.writer );
   for( int i = 0; i < 3000; ++i ) std::cerr << std::string( 1000, 'x' );
   std::cerr << "\nnext\n";
   EXPECT_EQ( readAll( ends.reader ), "maintd: 1 line dropped, because standard error was not read\nnext\n" );
}

// A failed assertion has to end the process, however things stand with its last words.
TEST( StandardError, doesNotKeepAnAssertionFromEndingTheProcess ) {
   Ends ends;
   makePipe( ends );
   auto const fail = [&] {
      alarm( 100 );
      StandardError error( ends.writer );
      while( !error.waits() ) std::cerr << lineOf( 0 );
      KEL_ASSERT( !error.waits() );
   };
   EXPECT_EXIT( fail(), ::testing::KilledBySignal( SIGABRT ), "" );
}

}  // namespace Host
