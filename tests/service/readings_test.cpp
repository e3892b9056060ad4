// Readings stand aside until somebody wants them, and come out as they went in, whatever their sizes.
#include "evidence/Readings.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Evidence::Readings;
using Interface::IntfRates;

struct Reading {
   double from, to;
   IntfRates rates;
   bool operator==( Reading const & ) const = default;
};

std::vector<Reading> taken( Readings & readings ) {
   std::vector<Reading> all;
   readings.takeAll( [&]( double from, double to, IntfRates const & rates ) { all.push_back( { from, to, rates } ); } );
   return all;
}

std::size_t room( Reading reading ) {
   Readings readings;
   std::size_t count = 0;
   for( ; readings.add( reading.from, reading.to, reading.rates, 0 ); ++count ) {
      EXPECT_TRUE( count < 100 );
      reading = { reading.to, reading.to + 1, reading.rates };
   }
   return count;
}

TEST( Readings, withoutTrafficThereIsRoomForMore ) {
   EXPECT_EQ( room( { 1, 2, { 0, 0, 2 } } ), 13u );
   EXPECT_EQ( room( { 1, 2, { 0, 8, 2 } } ), 4u );
   EXPECT_EQ( room( { 1, 2, { -0.0, 0, 2 } } ), 4u );  // which is not the same to a bit
}

TEST( Readings, aGapOrAnotherKindWaitsForTheOthersToBeTaken ) {
   Readings readings;
   ASSERT_TRUE( readings.add( 1, 2, { 0, 0, 2 }, 7 ) );
   EXPECT_FALSE( readings.add( 2, 3, { 0, 0, 3 }, 8 ) );
   EXPECT_FALSE( readings.add( 2.5, 3, { 0, 0, 3 }, 7 ) );
   EXPECT_EQ( taken( readings ).size(), 1u );
   EXPECT_TRUE( readings.add( 2.5, 3, { 0, 0, 3 }, 8 ) );
   EXPECT_EQ( readings.kind(), 8u );
}

TEST( Readings, comeOutAsTheyWentIn ) {
   auto const seed = std::random_device()();
   SCOPED_TRACE( seed );
   std::mt19937 random( seed );
   auto const oneIn = [&]( unsigned n ) { return random() % n == 0; };
   Readings readings;
   std::vector<Reading> expected;
   double to = 1;
   for( int i = 0; i < 10'000; ++i ) {
      double const from = to;
      to += 1 + static_cast<double>( random() % 1000 ) / 1000;
      auto const rate = [&] { return oneIn( 2 ) ? 0.0 : static_cast<double>( random() ); };
      IntfRates const rates{ rate(), rate(), to };
      if( oneIn( 9 ) || !readings.add( from, to, rates, 0 ) ) {
         ASSERT_EQ( taken( readings ), expected );
         expected.clear();
         ASSERT_TRUE( readings.add( from, to, rates, 0 ) );
      }
      expected.push_back( { from, to, rates } );
      EXPECT_EQ( readings.latest(), rates );
   }
}

}  // namespace
