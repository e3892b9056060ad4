// Drives the activity loop in real time, for programs that have no event loop of their own.
//
// It sleeps until the loop's next due time or until a watched descriptor is readable, then runs one turn; the callbacks of
// all descriptors that are ready are that turn's work, so handlers need not know where their work came from. One driver
// drives one loop; it makes no threads and never runs a turn by itself outside runUntil().
#pragma once

#include <poll.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "kel/ActivityLoop.h"

namespace Kel {

class RealLoopDriver {
 public:
   class FdReactor;

   explicit RealLoopDriver( ActivityLoop & loop ) : loop_( loop ) {}
   RealLoopDriver( RealLoopDriver const & ) = delete;
   RealLoopDriver & operator=( RealLoopDriver const & ) = delete;

   // Runs turns until `done` says true; it is asked before each sleep. A signal ends a sleep, an exception of a handler
   // passes through. Throws std::system_error when the descriptors cannot be waited for.
   void runUntil( std::function<bool()> const & done );

 private:
   void sleep( std::vector<pollfd> & fds );
   void turn( std::vector<pollfd> const & ready );

   ActivityLoop & loop_;
   std::vector<FdReactor *> reactors_;  // null: gone since the last sleep
};

// Watches one descriptor, which it does not own, for as long as it exists. The driver outlives it.
class RealLoopDriver::FdReactor {
 public:
   FdReactor( RealLoopDriver & driver, int fd ) : driver_( driver ), fd_( fd ) { driver.reactors_.push_back( this ); }
   FdReactor( FdReactor const & ) = delete;
   FdReactor & operator=( FdReactor const & ) = delete;
   virtual ~FdReactor() { std::ranges::replace( driver_.reactors_, this, nullptr ); }

   [[nodiscard]] int fd() const { return fd_; }

   // There is something to read, or the other end is gone. Called in each turn for as long as that is so.
   virtual void onReadable() = 0;

 private:
   RealLoopDriver & driver_;
   int const fd_;
};

}  // namespace Kel
