// What a window keeps of an interface that is watched for very long.
#include "evidence/Recorder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Evidence {
namespace {

class RecorderTest : public ::testing::Test {
 protected:
   void reading( double from, double to, double in, double out ) { recorder_.ratesAre( from, to, { in, out, to } ); }
   RateCells cells() const { return record_->rates(); }
   RateCell cell( uint32_t i ) const { return record_->rates().at( i ); }

   Kel::Ptr<WindowIntf> const record_{ new WindowIntf( Lumo::IntfId( "eth0" ) ) };
   Recorder recorder_{ record_, 60 };
};

TEST_F( RecorderTest, cellsWidenAndKeepExtremesMeansAndOrder ) {
   double total = 0;
   for( int i = 0; i < 5000; ++i ) {
      double const in = i == 4321 ? 7e6 : i % 10;
      total += in;
      reading( 1000 + 10 * i, 1010 + 10 * i, in, i == 17 ? 0 : 5 );
   }
   auto const count = static_cast<uint32_t>( cells().size() );
   ASSERT_LE( count, 60u );
   ASSERT_GE( count, 20u );
   double mean = 0;
   double highest = 0;
   double lowestOut = 5;
   for( uint32_t i = 0; i < count; ++i ) {
      EXPECT_EQ( cell( i ).from, i == 0 ? 1000 : cell( i - 1 ).to );
      mean += cell( i ).inMean * ( cell( i ).to - cell( i ).from ) / 50'000;
      highest = std::max( highest, cell( i ).inHigh );
      lowestOut = std::min( lowestOut, cell( i ).outLow );
   }
   EXPECT_EQ( cell( count - 1 ).to, 51'000 );
   EXPECT_NEAR( mean, total / 5000, 1e-6 );
   EXPECT_EQ( highest, 7e6 );
   EXPECT_EQ( lowestOut, 0 );
}

// Nothing is known of the time between, so no cell may speak for it.
TEST_F( RecorderTest, noCellReachesAcrossATimeWithoutReadings ) {
   for( int i = 0; i < 500; ++i ) {
      double const from = 1000 + 10 * i + ( i >= 250 ? 5000 : 0 );
      reading( from, from + 10, 1, 1 );
   }
   for( RateCell const & c : cells() ) EXPECT_FALSE( c.from < 3500 && c.to > 3500 );
}

TEST_F( RecorderTest, theFirstAndTheLastEventsAreKeptAndAllAreCounted ) {
   for( int i = 0; i < 1000; ++i ) recorder_.eventIs( "link", std::to_string( i ) );
   EXPECT_EQ( record_->totalEvents(), 1000u );
   EXPECT_EQ( record_->events(), 200u );
   for( uint32_t const number : { 0u, 99u, 900u, 999u } ) {
      ASSERT_TRUE( record_->event( number ) );
      EXPECT_EQ( record_->event( number )->text, std::to_string( number ) );
   }
   EXPECT_FALSE( record_->event( 500 ) );
}

TEST_F( RecorderTest, oneOverAnEarlierServicesRecordGoesOn ) {
   for( int i = 0; i < 100; ++i ) reading( 1000 + 10 * i, 1010 + 10 * i, 1, 1 );
   auto const before = cells().size();
   Recorder again( record_, 60 );
   again.ratesAre( 2000, 2010, { 1, 1, 2010 } );
   EXPECT_LE( record_->rates().size(), before + 1 );
   EXPECT_EQ( cell( static_cast<uint32_t>( record_->rates().size() ) - 1 ).to, 2010 );
}

}  // namespace
}  // namespace Evidence
