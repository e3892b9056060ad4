// A timer wheel: very many coarse timers for the price of one timer on the activity loop.
//
// Owned by the machine whose timers it carries; driven by one clock reactor. Time is cut into ticks counted from the
// wheel's creation, the first one tick after it. A timer fires on the first tick not yet delivered that is at or after its
// time, or up to 1/8 tick before it: re-armed for a whole number of ticks by a handler that runs a few milliseconds late,
// it keeps its period. Set for now or the past it fires on the next tick. Timers of one tick fire in the order in which
// they were set.
//
//    level 0   |.|.|.|x|.|.|.| ... |    one slot per tick of the present block of initialMaxTicks ticks
//    level 1   |   .   |   x   |   ... one slot per block, whose timers move down as it begins
//    level 2   |           .           |   ...           and so on, without end
//
// Setting, cancelling and firing cost O(1) each and allocate nothing, however far away the time is. The wheel sleeps
// until the next tick that has a timer, or begins a block with one. When the loop was held up it delivers the ticks that
// it missed in order, in one turn.
#pragma once

#include <cstdint>
#include <vector>

#include "kel/ActivityLoop.h"

namespace Brim {

class TimerWheel final : public Kel::PtrInterface {
 public:
   class NotifieeConst;

   // A wheel on `clock`, which the activity loop follows; `activityConfig` is null or the activity manager's own.
   // `initialMaxTicks` (1 to 2^20) is the span that needs no second level. Order is always preserved, and slots are
   // linked through the timers themselves, so that neither of the last two arguments changes anything.
   [[nodiscard]] static Kel::Ptr<TimerWheel> TimerWheelIs( Kel::Ptr<Kel::ActivityConfig> const & activityConfig,
                                                           Kel::Ptr<Kel::Clock> const & clock, uint32_t tickMsecs,
                                                           uint32_t initialMaxTicks, bool preserveOrder,
                                                           uint32_t defaultBucketSize );
   // Its timers stay, and never fire again.
   ~TimerWheel() override;

   [[nodiscard]] std::size_t timers() const { return armed_; }  // those that are set
   [[nodiscard]] double tickSeconds() const { return tickSeconds_; }

 private:
   class Delivery;

   // A place in a slot's ring; by itself, an empty ring.
   struct Link {
      Link * prev = this;
      Link * next = this;

      [[nodiscard]] bool alone() const { return next == this; }
      void insertBefore( Link & other );
      void unlink();
      void takeAll( Link & other );  // this is alone; afterwards `other` is
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
   [[nodiscard]] uint64_t tickAt( double t ) const;   // the last one at or before t
   [[nodiscard]] uint64_t tickFor( double t ) const;  // the first one that serves a timer set for t

   void arm( NotifieeConst & timer );
   void disarm( NotifieeConst & timer );
   void handleClock();

   // Slots, by number: first those of level 0, then those of each upper level
   [[nodiscard]] unsigned shift( std::size_t slot ) const;  // log2 of its ticks
   [[nodiscard]] std::size_t slotOf( uint64_t tick ) const;
   [[nodiscard]] std::size_t nextSlot() const;              // noSlot when no timer is set
   [[nodiscard]] uint64_t begin( std::size_t slot ) const;  // its first tick
   std::size_t file( NotifieeConst & timer );
   void unfile( NotifieeConst & timer );
   void refile( std::size_t slot );
   void fire( std::size_t slot );
   void sleep();
   void sleepUntil( uint64_t tick );

   double const creationTime_;
   double const tickSeconds_;
   unsigned const spanBits_;       // log2 of the ticks of level 0
   std::size_t const upperSlots_;  // number of the first slot above level 0
   uint64_t current_ = 0;          // the tick delivered last, or a later one that had no timer
   uint64_t wakeTick_;             // for which the clock reactor is set
   std::size_t armed_ = 0;
   bool delivering_ = false;
   std::vector<Link> slots_;
   std::vector<uint64_t> occupied_;  // a bit per slot
   Kel::NotifieeList attached_;      // all timers, set or not
   KelClock clock_;
};

// One timer. Derive from it, implement onTime(); it is set, set anew and destroyed from anywhere, handlers included.
class TimerWheel::NotifieeConst : public Kel::NotifieeBase, private TimerWheel::Link {
 public:
   explicit NotifieeConst( Kel::Ptr<TimerWheel> const & wheel );
   // Silent whenever `owner` is, which outlives the timer.
   NotifieeConst( Kel::Ptr<TimerWheel> const & wheel, Kel::PtrInterface const & owner );
   ~NotifieeConst() override;

   // When this is due, in seconds on the activity clock; +infinity when not set, as while the handler runs.
   [[nodiscard]] double timeMin() const { return timeMin_; }
   // Replaces what was asked for before, also in the order within a tick; +infinity cancels. Without effect once the wheel
   // is gone.
   void timeMinIs( double t );

   // The time has come. Not called when this or its owner is silent at that moment: the request is dropped.
   virtual void onTime() = 0;

 private:
   friend class TimerWheel;

   TimerWheel * wheel_;  // null once it is gone
   double timeMin_ = Kel::never;
   uint64_t tick_ = 0;
};

}  // namespace Brim
