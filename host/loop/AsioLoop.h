// The agent's one loop: waits with Asio, for the activity loop's next due time or for a descriptor, and runs the
// activity loop.
//
// Everything that reads or writes records runs inside a turn of the activity loop: a handler of a descriptor calls
// turn( work ), so that the plug-in's clock stands still while it works and its timers and deferred work follow at
// once. Owned by the agent.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <functional>
#include <list>
#include <utility>

#include "kel/ActivityLoop.h"

namespace Host {

class AsioLoop {
 public:
   // Drives `loop`, whose clock must follow CLOCK_BOOTTIME, always `ahead` seconds before it (loop/ShiftedClock.h).
   explicit AsioLoop( Kel::ActivityLoop & loop, double ahead = 0 );

   [[nodiscard]] boost::asio::io_context & io() { return io_; }

   // Runs `work` in a turn of its own, now. Called from handlers of io(), never from within a turn.
   void turn( std::function<void()> const & work = {} );

   // Calls `late` after each turn in which a timer ran, with the seconds since the first of them was due.
   void onLateIs( std::function<void( double seconds )> late ) { onLate_ = std::move( late ); }

   // Runs `readable` in a turn whenever the descriptor, which stays its owner's, can be read.
   void watch( int fd, std::function<void()> readable );

   // Called after each turn, between turns; replaces the one before. Empty: nobody.
   void onTurn( std::function<void()> after ) { onTurn_ = std::move( after ); }

   void run();
   void stop() { io_.stop(); }

 private:
   struct Watch {
      Watch( boost::asio::io_context & io, int fd, std::function<void()> handler )
         : descriptor( io, fd ), readable( std::move( handler ) ) {}
      Watch( Watch const & ) = delete;
      Watch & operator=( Watch const & ) = delete;
      // Not closed: it is its owner's.
      ~Watch() { descriptor.release(); }

      boost::asio::posix::stream_descriptor descriptor;
      std::function<void()> readable;
   };

   void awaitReadable( Watch & watch );
   void awaitDue();
   void armTimer();

   Kel::ActivityLoop & loop_;
   double const ahead_;                           // s
   boost::asio::io_context io_{ 1 };              // a hint that one thread runs it
   boost::asio::posix::stream_descriptor timer_;  // a timerfd, so that suspended time counts as in the loop's clock
   std::list<Watch> watches_;
   std::function<void()> onTurn_;
   std::function<void( double )> onLate_;
};

}  // namespace Host
