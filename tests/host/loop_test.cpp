// The agent's loop on the real clock.
#include "loop/AsioLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "loop/ShiftedClock.h"

namespace Host {
namespace {

// Writes a byte into the pipe when it is due.
class Request final : public Kel::Clock::NotifieeConst {
 public:
   Request( Kel::ActivityLoop & loop, int pipe ) : NotifieeConst( loop.clock() ), pipe_( pipe ) {}
   void onTimeMin() override { EXPECT_EQ( write( pipe_, "x", 1 ), 1 ); }

 private:
   int const pipe_;
};

// On a clock that is ahead of the kernel's, or behind it, as after a start of the machine.
class AsioLoopTest : public ::testing::TestWithParam<double> {};
INSTANTIATE_TEST_SUITE_P( Clocks, AsioLoopTest, ::testing::Values( 0, 1e6, -1e6 ) );

TEST_P( AsioLoopTest, sleepsUntilATimerIsDueOrADescriptorIsReady ) {
   Kel::Ptr<Kel::Clock> const clock = new ShiftedClock( GetParam() );
   Kel::ActivityLoop activity( clock );
   AsioLoop loop( activity, GetParam() );
   int ends[2] = {};
   ASSERT_EQ( pipe( ends ), 0 );
   double answered = 0;
   loop.watch( ends[0], [&] {
      EXPECT_TRUE( activity.inTurn() );
      answered = Kel::now();
      loop.stop();
   } );
   Request request( activity, ends[1] );
   double const due = clock->now() + 0.02;
   request.timeMinIs( due );
   loop.run();
   EXPECT_GE( answered, due );
   EXPECT_EQ( activity.turnNumber(), 2u );  // one for the timer, one for the descriptor: no turn was run in vain
   close( ends[0] );
   close( ends[1] );
}

}  // namespace
}  // namespace Host
