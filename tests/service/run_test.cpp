// What makes a reading and what breaks a run, sample by sample.
#include "evidence/Run.h"

#include <gtest/gtest.h>

namespace Evidence {
namespace {

constexpr double threshold = 100e3;  // bit/s

class RunStory : public ::testing::Test {
 protected:
   ::Evidence::Run::Step sample( double time, double in, double out ) { return sample( time, in, out, true, 0 ); }
   ::Evidence::Run::Step sample( double time, double in, double out, bool fresh, uint64_t restarts ) {
      return run_.sampleIs( { time, { in, out, time }, fresh, restarts }, threshold );
   }
   void begun( double time ) { run_.firstSampleIs( time, true, 0 ); }

   ::Evidence::Run run_;
};

TEST_F( RunStory, quietReadingsCoverTheTimeFromTheSampleBeforeTheFirst ) {
   begun( 1000 );
   EXPECT_FALSE( run_.lastReading() );
   EXPECT_TRUE( sample( 1010, 10, 10 ).reading );
   EXPECT_TRUE( sample( 1020, 10, 10 ).reading );
   EXPECT_EQ( run_.quietSince(), 1000 );
   EXPECT_EQ( run_.lastReading(), 1020 );
}

TEST_F( RunStory, aRateEqualToTheThresholdInEitherDirectionIsLoud ) {
   for( bool const in : { true, false } ) {
      run_ = {};
      begun( 1000 );
      sample( 1010, threshold - 1, threshold - 1 );
      EXPECT_EQ( run_.quietSince(), 1000 );
      auto const step = sample( 1020, in ? threshold : 0, in ? 0 : threshold );
      EXPECT_TRUE( step.broke && step.becameLoud && run_.loud() );
      EXPECT_FALSE( run_.quietSince() );
      EXPECT_EQ( ::Evidence::Run::loudReading( run_.rates(), 0 ).direction, in ? Direction::in : Direction::out );
      EXPECT_EQ( run_.lastBreak(), in ? "traffic, in 100 kbps" : "traffic, out 100 kbps" );
      // One spike however long it lasts, and one break.
      auto const next = sample( 1030, threshold, threshold );
      EXPECT_FALSE( next.broke || next.becameLoud );
      // The next quiet one covers from the last loud one on.
      sample( 1040, 0, 0 );
      EXPECT_EQ( run_.quietSince(), 1030 );
      EXPECT_FALSE( run_.loud() );
   }
}

// A rate of counters that stand still because nobody read them says nothing, nor does the next, which makes up for it.
TEST_F( RunStory, countersThatWereNotReadEndTheRunAndSpoilTheSampleAfterThem ) {
   begun( 1000 );
   sample( 1010, 0, 0 );
   EXPECT_TRUE( sample( 1020, 0, 0, false, 0 ).broke );
   EXPECT_FALSE( run_.lastReading() );
   EXPECT_FALSE( sample( 1030, 2 * threshold, 0 ).reading );
   EXPECT_FALSE( run_.loud() );
   sample( 1040, 0, 0 );
   EXPECT_EQ( run_.quietSince(), 1030 );
}

TEST_F( RunStory, aRestartSpoilsTheSampleThatShowsItAndNoOther ) {
   begun( 1000 );
   sample( 1010, 0, 0 );
   auto const step = sample( 1020, 0, 0, true, 1 );
   EXPECT_TRUE( step.broke && !step.reading );
   sample( 1030, 0, 0, true, 1 );
   EXPECT_EQ( run_.quietSince(), 1020 );
}

// A changed threshold forgets what was judged by the old one, also a loud reading; a flap spoils what spans it.
TEST_F( RunStory, aBreakForgetsTheLastReadingAndAnInterruptionAlsoTheSampleBefore ) {
   begun( 1000 );
   sample( 1010, threshold, 0 );
   EXPECT_FALSE( run_.breakIs( "its threshold changed" ).broke );
   EXPECT_FALSE( run_.loud() );
   sample( 1020, 0, 0 );
   EXPECT_EQ( run_.quietSince(), 1010 );
   EXPECT_TRUE( run_.interruptIs( "its link went down" ).broke );
   EXPECT_FALSE( sample( 1030, 0, 0 ).reading );
   sample( 1040, 0, 0 );
   EXPECT_EQ( run_.quietSince(), 1030 );
   EXPECT_EQ( run_.lastBreak(), "its link went down" );
}

TEST_F( RunStory, aFirstSampleThatWasNotReadIsNoReference ) {
   run_.firstSampleIs( 1000, false, 0 );
   EXPECT_FALSE( sample( 1010, 0, 0 ).reading );
   EXPECT_TRUE( sample( 1020, 0, 0 ).reading );
   EXPECT_EQ( run_.quietSince(), 1010 );
}

}  // namespace
}  // namespace Evidence
