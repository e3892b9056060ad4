#include "loop/AsioLoop.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>

namespace Host {

namespace asio = boost::asio;

namespace {

int newTimer() {
   int const fd = timerfd_create( CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC );
   if( fd < 0 ) throw std::system_error( errno, std::generic_category(), "making the loop's timer" );
   return fd;
}

// An absolute time for timerfd_settime(2); a due time of 0 or before must not read as "disarm".
timespec absolute( double seconds ) {
   constexpr double latest = 0x1p62;  // s; as good as never, and a number that the kernel takes
   seconds = std::min( seconds, latest );
   double const whole = std::floor( seconds );
   auto const nanoseconds = static_cast<long>( ( seconds - whole ) * 1e9 );
   if( seconds <= 0 ) return { .tv_sec = 0, .tv_nsec = 1 };
   return { .tv_sec = static_cast<time_t>( whole ), .tv_nsec = nanoseconds };
}

}  // namespace

AsioLoop::AsioLoop( Kel::ActivityLoop & loop ) : loop_( loop ), timer_( io_, newTimer() ) {}

void AsioLoop::turn( std::function<void()> const & work ) {
   loop_.turn( work );
   armTimer();
}

void AsioLoop::armTimer() {
   double const due = loop_.nextDue();
   itimerspec spec{};
   if( std::isfinite( due ) ) spec.it_value = absolute( due );
   if( timerfd_settime( timer_.native_handle(), TFD_TIMER_ABSTIME, &spec, nullptr ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "setting the loop's timer" );
   }
}

void AsioLoop::awaitDue() {
   timer_.async_wait( asio::posix::stream_descriptor::wait_read, [this]( boost::system::error_code error ) {
      if( error ) return;
      uint64_t expirations = 0;
      static_cast<void>( !::read( timer_.native_handle(), &expirations, sizeof expirations ) );
      turn();
      awaitDue();
   } );
}

void AsioLoop::watch( int fd, std::function<void()> readable ) {
   watches_.emplace_back( io_, fd, std::move( readable ) );
   awaitReadable( watches_.back() );
}

void AsioLoop::awaitReadable( Watch & watch ) {
   watch.descriptor.async_wait( asio::posix::stream_descriptor::wait_read,
                                [this, &watch]( boost::system::error_code error ) {
                                   if( error ) return;
                                   turn( watch.readable );
                                   awaitReadable( watch );
                                } );
}

void AsioLoop::run() {
   armTimer();
   awaitDue();
   io_.run();
}

}  // namespace Host
