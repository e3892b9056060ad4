#include "kel/Clock.h"

#include <ctime>

#include "kel/ActivityLoop.h"

namespace Kel {

double RealClock::now() const {
   timespec t{};
   int const status = clock_gettime( CLOCK_BOOTTIME, &t );
   KEL_ASSERT( status == 0 );
   return static_cast<double>( t.tv_sec ) + static_cast<double>( t.tv_nsec ) * 1e-9;
}

TimedQueue & Clock::NotifieeConst::queue() const {
   ActivityLoop & loop = activityLoop();
   // The loop compares due times with its own clock; those of another one would come at any time or never.
   KEL_ASSERT( clock_ == loop.clock() );
   return loop.timers();
}

}  // namespace Kel
