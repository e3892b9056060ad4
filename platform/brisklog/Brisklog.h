// The ring-buffer trace: what the agent did lately, kept at almost no cost and readable after its death.
//
// BRISKLOG( level, "intf {}, profile {}", intf, name ) copies the time, a format number and the arguments into the
// current ring; nothing is formatted until somebody reads. The number of arguments is checked when the call is
// compiled. Levels: 0 errors and anomalies, 1 warnings, 3 progress, 4 profiles, 8 per-sample detail; all are enabled
// until levelsIs() says otherwise, and a disabled one costs a load and a branch and evaluates no argument.
//
// The ring is anonymous memory until the agent gives a file with ringIs(). A failed assertion, and an exception that
// nobody catches, are put there at level 0 before the process aborts. One writer: the activity loop. A message changes
// nothing but the ring.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "brisklog/Arg.h"
#include "brisklog/RingFile.h"
#include "kel/ActivityLoop.h"

namespace Brisklog {

// A message as text.
struct Message {
   double time;  // s, of the turn in which it was written
   int level;
   uint64_t sequence;  // counts the ring's messages from 0
   std::string text;
};

// From now on messages go to this ring; what the one before held in anonymous memory is gone.
void ringIs( std::unique_ptr<RingFile> ring );
// The current ring; the anonymous one is made when it is first needed.
[[nodiscard]] RingFile & ring();

// Exactly these levels are written from now on.
void levelsIs( std::initializer_list<int> levels );

// Shows every message as it is written, formatted for that; an empty function ends it. The tap writes no messages.
using Tap = std::function<void( Message const & )>;
void tapIs( Tap tap );

// What every call reads, one copy in the process. `ready` folds what a call would have to ask into one comparison:
// whether there is a ring, whether its table has the call's format, and whether the tap wants to see the message.
struct WriterState {
   uint32_t levels;  // bit n set: level n is enabled
   uint32_t ready;   // call sites of this generation need nothing but to write; 0 while the tap is to see every message
   RingFile * ring;
};
extern WriterState writerState;

[[nodiscard]] inline bool levelEnabled( int level ) { return ( ( writerState.levels >> level ) & 1u ) != 0; }

[[nodiscard]] constexpr bool levelExists( int level ) {
   return level == 0 || level == 1 || level == 3 || level == 4 || level == 8;
}

// One call site: its level and format, and the format's number in the table of the ring it last wrote to.
class MsgDesc {
 public:
   constexpr MsgDesc( int level, std::string_view format, std::span<ArgType const> types )
      : level_( static_cast<uint16_t>( level ) ), format_{ types, format } {}

   template<class... Slots>
   [[gnu::always_inline]] void write( Slots... slots ) {
      auto const bytes = static_cast<uint32_t>( ( sizeof( RecordHeader ) + ... + slots.bytes() ) );
      if( generation_ != writerState.ready || !writerState.ring->hasRoom( bytes ) ) [[unlikely]]
         return writeWithCare( bytes, slots... );
      put( bytes, slots... );
   }

 private:
   // All that only some messages need; apart, so that the others save no registers.
   template<class... Slots>
   [[gnu::cold, gnu::noinline]] void writeWithCare( uint32_t bytes, Slots... slots ) {
      enterIntoTable();  // first: it makes the ring if there is none
      writerState.ring->roomIs( bytes );
      showToTap( put( bytes, slots... ) );
   }
   template<class... Slots>
   [[gnu::always_inline]] std::byte const * put( uint32_t bytes, Slots... slots ) const {
      RingFile & ring = *writerState.ring;
      std::byte * const record = ring.place();
      new( record ) RecordHeader{ bytes, number_, level_, ring.sequence(), Kel::now() };
      [[maybe_unused]] std::byte * arg = record + sizeof( RecordHeader );
      ( ( slots.put( arg ), arg += slots.bytes() ), ... );
      ring.commit( bytes );  // last: the record is whole now
      return record;
   }
   void enterIntoTable();
   void showToTap( std::byte const * record ) const;

   uint16_t number_ = 0;
   uint16_t const level_;
   // Of the ring that number_ is for, at first none. Not 0: that is what `ready` is before there is a ring, and the
   // call would write through a null pointer.
   uint32_t generation_ = UINT32_MAX;
   Format const format_;
};

template<class... Args>
[[gnu::always_inline]] inline void writeMessage( MsgDesc & desc, Args const &... args ) {
   desc.write( slotOf( args )... );
}

// Puts "<name>: <microseconds>" into the ring at level 8 when the block that it stands in ends. The microseconds are
// those of the loop's clock: on a virtual clock a block takes none.
class BlockTimer {
 public:
   explicit BlockTimer( char const * name );
   BlockTimer( BlockTimer const & ) = delete;
   BlockTimer & operator=( BlockTimer const & ) = delete;
   ~BlockTimer();

 private:
   char const * const name_;
   double const startedAt_;  // s
};

}  // namespace Brisklog

// `level` and `format` are constants; each {} of the format takes one argument, in order. The call site's description
// is initialised at compile time, so no guard is asked for at each call.
#define BRISKLOG( level, format, ... )                                                                      \
   do {                                                                                                     \
      using BrisklogArgs = decltype( ::Brisklog::argListOf( __VA_ARGS__ ) );                                \
      static_assert( ::Brisklog::levelExists( level ) );                                                    \
      static_assert( BrisklogArgs::count <= ::Brisklog::argCountMax );                                      \
      static_assert( ::Brisklog::slotCount( format ) == BrisklogArgs::count, "one argument for each {}" );  \
      if( ::Brisklog::levelEnabled( level ) ) {                                                             \
         static constinit ::Brisklog::MsgDesc brisklogDesc( level, format,                                  \
                                                            { BrisklogArgs::types, BrisklogArgs::count } ); \
         ::Brisklog::writeMessage( brisklogDesc __VA_OPT__(, ) __VA_ARGS__ );                               \
      }                                                                                                     \
   } while( false )
