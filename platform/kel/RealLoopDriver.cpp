#include "kel/RealLoopDriver.h"

#include <cerrno>
#include <cmath>
#include <ctime>
#include <system_error>

namespace Kel {

namespace {

// The kernel's timeout stands still while the machine is asleep and the loop's clock does not, so no sleep is longer.
constexpr double longestSleepSeconds = 1.0;

timespec toTimespec( double seconds ) {
   double const whole = std::floor( seconds );
   return { .tv_sec = static_cast<time_t>( whole ), .tv_nsec = static_cast<long>( ( seconds - whole ) * 1e9 ) };
}

}  // namespace

void RealLoopDriver::runUntil( std::function<bool()> const & done ) {
   std::vector<pollfd> fds;
   while( !done() ) {
      sleep( fds );
      bool const ready = std::ranges::any_of( fds, []( pollfd const & fd ) { return fd.revents != 0; } );
      if( ready || loop_.nextDue() <= loop_.clock()->now() ) turn( fds );
   }
}

void RealLoopDriver::sleep( std::vector<pollfd> & fds ) {
   std::erase( reactors_, nullptr );
   fds.clear();
   for( FdReactor const * r : reactors_ ) fds.push_back( { .fd = r->fd(), .events = POLLIN, .revents = 0 } );
   double const wait = loop_.nextDue() - loop_.clock()->now();
   timespec const timeout = toTimespec( std::clamp( wait, 0.0, longestSleepSeconds ) );
   int const ready = ppoll( fds.data(), fds.size(), &timeout, nullptr );
   if( ready >= 0 ) return;
   for( pollfd & fd : fds ) fd.revents = 0;
   if( errno != EINTR ) throw std::system_error( errno, std::generic_category(), "waiting for descriptors" );
}

void RealLoopDriver::turn( std::vector<pollfd> const & ready ) {
   // A callback may end other reactors; those that it makes come after the ones that were asked about.
   loop_.turn( [&] {
      for( std::size_t i = 0; i < ready.size(); ++i ) {
         if( ready[i].revents != 0 && reactors_[i] ) reactors_[i]->onReadable();
      }
   } );
}

}  // namespace Kel
