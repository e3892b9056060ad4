// A timer wheel: very many coarse timers for the price of one timer on the activity loop.
//
// Owned by the machine whose timers it carries and by the timers; driven by one clock reactor. Time is cut into ticks
// counted from the wheel's creation, the first one tick after it. A timer fires on the first tick not yet delivered
// that is at or after its time, never before it but for a microsecond, which hides that times are rounded. A tick that
// the loop delivers late lends its lateness, at most 1/8 tick, to the timers that its handlers set: they may fire
// earlier by as much. So a timer that is set anew for a whole number of ticks keeps its period instead of slipping a
// tick each time. Set for the present or the past a timer fires on the next tick. Timers of one tick fire in the order
// in which they were set.
//
//    level 0   |.|.|.|x|.|.|.| ... |    one slot per tick of the present block of initialMaxTicks ticks
//    level 1   |   .   |   x   |   ... one slot per block, whose timers move down as it begins
//    level 2   |           .           |   ...           and so on, without end
//
// Setting, cancelling and firing cost O(1) each, however far away the time is. A slot is a queue in chunks: a timer is
// put at its end without a look at any other, and while some fire, those behind them come from memory. Chunks that come
// free are kept, so nothing is allocated once there are enough for the timers that are set. The wheel sleeps until the
// next tick that has a timer or had one that was cancelled, or that begins a block with one. When the loop was held up
// it delivers the ticks that it missed in order, in one turn.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "kel/ActivityLoop.h"

namespace Brim {

class TimerWheel final : public Kel::PtrInterface {
 public:
   class NotifieeConst;

   // A wheel on `clock`, which the activity loop follows; `activityConfig` is null or the activity manager's own.
   // `initialMaxTicks` (1 to 2^20) is the span that needs no second level. The last two arguments change nothing: order
   // is always preserved, and slots grow as they are filled.
   [[nodiscard]] static Kel::Ptr<TimerWheel> TimerWheelIs( Kel::Ptr<Kel::ActivityConfig> const & activityConfig,
                                                           Kel::Ptr<Kel::Clock> const & clock, uint32_t tickMsecs,
                                                           uint32_t initialMaxTicks, bool preserveOrder,
                                                           uint32_t defaultBucketSize );
   [[nodiscard]] std::size_t timers() const { return armed_; }  // those that are set
   [[nodiscard]] double tickSeconds() const { return tickSeconds_; }

 private:
   class Delivery;

   // Places of timers, in the order in which they were set; null where one was cancelled or has fired.
   struct Chunk {
      static constexpr std::size_t size = 62;

      Chunk * next;
      std::size_t used;
      NotifieeConst * timers[size];
   };
   struct Slot {
      Chunk * first = nullptr;
      Chunk * last = nullptr;  // only it has room
   };
   class KelClock final : public Kel::Clock::NotifieeConst {
    public:
      KelClock( Kel::Ptr<Kel::Clock> const & clock, TimerWheel & wheel ) : NotifieeConst( clock ), wheel_( wheel ) {}
      void onTimeMin() override { wheel_.handleClock(); }

    private:
      TimerWheel & wheel_;
   };

   TimerWheel( Kel::Ptr<Kel::Clock> const & clock, double tickSeconds, uint32_t initialMaxTicks );

   [[nodiscard]] double tickTime( uint64_t tick ) const;
   [[nodiscard]] double lateness( uint64_t tick ) const;  // s, what this tick lends
   [[nodiscard]] uint64_t tickAt( double t ) const;       // the last one at or before t
   [[nodiscard]] uint64_t tickFor( double t ) const;      // the first one that serves a timer set now for t

   void arm( NotifieeConst & timer );
   void disarm( NotifieeConst & timer );
   void handleClock();

   // Slots, by number: first those of level 0, then those of each upper level
   [[nodiscard]] unsigned shift( std::size_t slot ) const;  // log2 of its ticks
   [[nodiscard]] std::size_t slotOf( uint64_t tick ) const;
   [[nodiscard]] std::size_t nextSlot() const;              // noSlot when no timer is set
   [[nodiscard]] uint64_t begin( std::size_t slot ) const;  // its first tick
   std::size_t file( NotifieeConst & timer );
   void refile( std::size_t slot );
   void fire( std::size_t slot );
   static void fetch( Chunk const & chunk, std::size_t i );  // from memory, ahead of its use
   void clear( std::size_t slot );                           // its chunks are the caller's
   void release( NotifieeConst & timer );
   void tidy();

   [[nodiscard]] Chunk & newChunk();
   [[nodiscard]] Chunk * recycled( Chunk & chunk );  // its successor

   void sleep();
   void sleepUntil( uint64_t tick );

   double const creationTime_;
   double const tickSeconds_;
   double const ticksPerSecond_;
   unsigned const spanBits_;       // log2 of the ticks of level 0
   std::size_t const upperSlots_;  // number of the first slot above level 0
   double early_;                  // s, how far before its time a timer that is set now may fire
   uint64_t current_ = 0;          // the tick delivered last, or a later one that had no timer
   uint64_t wakeTick_;             // for which the clock reactor is set
   std::size_t armed_ = 0;
   std::size_t places_ = 0;  // used in all chunks of slots, those of timers cancelled since included
   bool delivering_ = false;
   std::vector<Slot> slots_;
   std::vector<uint64_t> occupied_;  // a bit per slot
   std::deque<Chunk> chunks_;        // all there are; a deque, because timers point into them
   Chunk * freeChunks_ = nullptr;
   KelClock clock_;
};

// One timer. Derive from it, implement onTime(); it is set, set anew and destroyed from anywhere, handlers included.
class TimerWheel::NotifieeConst : public Kel::ReactorBase {
 public:
   explicit NotifieeConst( Kel::Ptr<TimerWheel> const & wheel ) : wheel_( wheel ) {}
   // Silent whenever `owner` is, which outlives the timer.
   NotifieeConst( Kel::Ptr<TimerWheel> const & wheel, Kel::PtrInterface const & owner )
      : ReactorBase( owner ), wheel_( wheel ) {}
   ~NotifieeConst() override;

   [[nodiscard]] Kel::Ptr<TimerWheel> const & notifier() const { return wheel_; }
   // When this is due, in seconds on the activity clock; +infinity when not set, as while the handler runs.
   [[nodiscard]] double timeMin() const { return timeMin_; }
   // Replaces what was asked for before, also in the order within a tick; +infinity cancels.
   void timeMinIs( double t );

   // The time has come. Not called when this or its owner is silent at that moment: the request is dropped.
   virtual void onTime() = 0;

 private:
   friend class TimerWheel;

   Kel::Ptr<TimerWheel> const wheel_;
   double timeMin_ = Kel::never;
   NotifieeConst ** place_ = nullptr;  // in its slot, while it is set
   uint64_t tick_ = 0;
};

}  // namespace Brim
