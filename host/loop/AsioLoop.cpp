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
   // A clock that goes on while the machine is suspended (clock_gettime(2)): what became due meanwhile is due at once.
   int const fd = timerfd_create( CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC );
   if( fd < 0 ) throw std::system_error( errno, std::generic_category(), "making the loop's timer" );
   return fd;
}

// An absolute time for timerfd_settime(2), which takes all zeros for "disarm": a due time of 0 or before becomes the
// smallest that is not.
timespec absolute( double seconds ) {
   constexpr double latest = 0x1p62;  // s; as good as never, and a number that the kernel takes
   seconds = std::min( seconds, latest );
   double const whole = std::floor( seconds );
   // Cut off, not rounded. A turn that comes a nanosecond early has nothing to do, and arms the timer again.
   auto const nanoseconds = static_cast<long>( ( seconds - whole ) * 1e9 );
   if( seconds <= 0 ) return { .tv_sec = 0, .tv_nsec = 1 };
   return { .tv_sec = static_cast<time_t>( whole ), .tv_nsec = nanoseconds };
}

}  // namespace

AsioLoop::AsioLoop( Kel::ActivityLoop & loop, double ahead )
   : loop_( loop ), ahead_( ahead ), timer_( io_, newTimer() ) {}

void AsioLoop::turn( std::function<void()> const & work ) {
   double const due = loop_.timers().nextDue();
   loop_.turn( work );
   if( onLate_ && due <= loop_.now() ) onLate_( loop_.now() - due );
   // Whatever ran may have moved the next due time, either way.
   armTimer();
   if( onTurn_ ) onTurn_();
}

void AsioLoop::armTimer() {
   double const due = loop_.nextDue();
   itimerspec spec{};
   // Where nothing waits it stays all zeros, which disarms.
   if( std::isfinite( due ) ) spec.it_value = absolute( due - ahead_ );
   if( timerfd_settime( timer_.native_handle(), TFD_TIMER_ABSTIME, &spec, nullptr ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "setting the loop's timer" );
   }
}

void AsioLoop::awaitDue() {
   timer_.async_wait( asio::posix::stream_descriptor::wait_read, [this]( boost::system::error_code error ) {
      if( error ) return;
      // Unread, it would stay ready (timerfd_create(2)). There may be nothing to read: another handler's turn has armed
      // it anew since it was ready. One turn more does no harm. The "!" is there because g++ does not let a bare cast
      // ignore a result that is to be used.
      uint64_t expirations = 0;
      static_cast<void>( !::read( timer_.native_handle(), &expirations, sizeof expirations ) );
      turn();
      awaitDue();
   } );
}

void AsioLoop::watch( int fd, std::function<void()> readable ) {
   // In a list, where it stays in its place: the handlers refer to it.
   watches_.emplace_back( io_, fd, std::move( readable ) );
   awaitReadable( watches_.back() );
}

void AsioLoop::awaitReadable( Watch & watch ) {
   watch.descriptor.async_wait( asio::posix::stream_descriptor::wait_read,
                                [this, &watch]( boost::system::error_code error ) {
                                   if( error ) return;
                                   turn( watch.readable );
                                   // What the owner has left unread makes it ready again at once.
                                   awaitReadable( watch );
                                } );
}

void AsioLoop::run() {
   // What was made before the loop runs may have asked for its time outside any turn.
   armTimer();
   awaitDue();
   io_.run();
}

}  // namespace Host
