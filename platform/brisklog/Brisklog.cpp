#include "brisklog/Brisklog.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "kel/Assert.h"

namespace Brisklog {

namespace {

constexpr uint64_t anonymousRingBytes = 1024 * 1024;
constexpr uint32_t everyLevel = ~uint32_t( 0 );

uint32_t generation = 0;  // of the ring, 0 before the first

// The tap and the ring are never destroyed: static objects may still write while the process ends.
Tap & theTap() {
   static auto & tap = *new Tap;
   return tap;
}

void recordAssertion( char const * expression, char const * file, int line ) {
   // Of a long path the end says more than the beginning.
   std::string_view const path( file );
   std::string_view const name = path.substr( path.rfind( '/' ) + 1 );
   BRISKLOG( 0, "assertion failed: \"{}\" at {}:{}", expression, name, line );
}

std::string textOf( std::exception_ptr const & exception ) {
   if( !exception ) return "none, terminated without one";
   try {
      std::rethrow_exception( exception );
   } catch( std::exception const & error ) {
      return error.what();
   } catch( ... ) {
      return "of an unknown type";
   }
}

[[noreturn]] void endByException() {
   std::set_terminate( std::abort );  // what fails in here must not come back here
   std::string const text = textOf( std::current_exception() );
   // Standard error first, and flushed, for an abort flushes nothing: making a ring may fail in its turn.
   std::fprintf( stderr, "Uncaught exception: %s\n", text.c_str() );
   std::fflush( nullptr );
   BRISKLOG( 0, "uncaught exception: {}", text );
   std::abort();
}

// Set when the library is loaded: static objects of the program may fail before main() begins.
[[maybe_unused]] bool const lastWordsAreRecorded =
   ( Kel::assertSinkIs( recordAssertion ), std::set_terminate( endByException ), true );

}  // namespace

constinit WriterState writerState{ everyLevel, 0, nullptr };

void ringIs( std::unique_ptr<RingFile> ring ) {
   KEL_ASSERT( ring );
   // Unmapped at the end of this, when nothing points to it any more.
   std::unique_ptr<RingFile> const previous( std::exchange( writerState.ring, ring.release() ) );
   ++generation;  // the numbers that call sites hold are those of another table
   writerState.ready = theTap() ? 0 : generation;
}

RingFile & ring() {
   if( !writerState.ring ) ringIs( RingFile::anonymous( anonymousRingBytes ) );
   return *writerState.ring;
}

void levelsIs( std::initializer_list<int> levels ) {
   uint32_t mask = 0;
   for( int const level : levels ) {
      KEL_ASSERT( levelExists( level ) );
      mask |= uint32_t( 1 ) << level;
   }
   writerState.levels = mask;
}

void tapIs( Tap tap ) {
   theTap() = std::move( tap );
   writerState.ready = theTap() ? 0 : generation;
}

void MsgDesc::enterIntoTable() {
   RingFile & present = ring();  // before the generation is compared: making the ring begins one
   if( generation_ == generation ) return;
   number_ = present.formatNumber( format_ );
   generation_ = generation;
}

// From the record and not from the arguments: the tap sees what a reader will see, long texts cut as there.
void MsgDesc::showToTap( std::byte const * record ) const {
   if( !theTap() ) return;
   RecordHeader header;
   std::memcpy( &header, record, sizeof header );
   auto text = messageText( format_, { record + sizeof header, header.bytes - sizeof header } );
   KEL_ASSERT( text );
   theTap()( { header.time, header.level, header.sequence, std::move( *text ) } );
}

// On the clock read afresh: the time of the turn would not move from the beginning of the block to its end.
BlockTimer::BlockTimer( char const * name ) : name_( name ), startedAt_( Kel::activityLoop().clock()->now() ) {}

BlockTimer::~BlockTimer() {
   double const taken = Kel::activityLoop().clock()->now() - startedAt_;
   BRISKLOG( 8, "{}: {}", name_, std::llround( taken * 1e6 ) );
}

}  // namespace Brisklog
