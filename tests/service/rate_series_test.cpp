// That nothing of a series of rates is lost by keeping it packed, and that nothing foreign is taken for one.
#include "evidence/RateSeries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kel/Exception.h"

namespace Evidence {
namespace {

// As the clock of a running box says it, now and after ten years, or any other number.
double timeAfter( double before, std::mt19937 & random ) {
   switch( random() % 8 ) {
      case 0: return before + std::ldexp( static_cast<double>( random() ), -30 );
      case 1: return before + 1e7;
      case 2: return before;
      default: break;
   }
   auto const ns = std::llround( before * 1e9 ) + 1'000'000'000 + static_cast<long long>( random() % 1'000'000 );
   return static_cast<double>( ns / 1'000'000'000 ) + static_cast<double>( ns % 1'000'000'000 ) * 1e-9;
}

double rate( double seconds, std::mt19937 & random ) {
   switch( random() % 6 ) {
      case 0: return 0;
      case 1: return static_cast<double>( uint64_t{ random() } << ( random() % 30 ) ) / 3;
      case 2: return -0.0;
      case 3: return std::numeric_limits<double>::infinity();
      default: return static_cast<double>( uint64_t{ random() } * 8 ) / seconds;
   }
}

RateCells randomCells( std::size_t count, std::mt19937 & random ) {
   RateCells cells;
   double end = random() % 2 ? 47'000.123'456'789 : 0;
   for( std::size_t i = 0; i < count; ++i ) {
      double const from = random() % 10 == 0 ? timeAfter( end, random ) : end;
      end = timeAfter( from, random );
      RateCell cell{ from, end, rate( end - from, random ), 0, 0, rate( end - from, random ), 0, 0 };
      bool const single = random() % 2 == 0;
      cell.inMean = single ? cell.inLow : rate( 1, random );
      cell.inHigh = single ? cell.inLow : rate( 1, random );
      cell.outMean = cell.outHigh = cell.outLow;
      cells.push_back( cell );
   }
   return cells;
}

void expectSame( RateCells const & found, RateCells const & wanted ) {
   ASSERT_EQ( found.size(), wanted.size() );
   // Down to the sign of a zero.
   EXPECT_TRUE( std::equal( found.begin(), found.end(), wanted.begin(),
                            []( auto const & a, auto const & b ) { return std::memcmp( &a, &b, sizeof a ) == 0; } ) );
}

TEST( RateSeries, whateverItsCellsTheyAreReadAsTheyWereWritten ) {
   for( unsigned seed = 0; seed < 2000; ++seed ) {
      SCOPED_TRACE( seed );
      std::mt19937 random( seed );
      auto wanted = randomCells( seed % 70, random );
      RateSeries series;
      for( RateCell const & cell : wanted ) series.add( cell );
      if( !wanted.empty() && seed % 3 == 0 ) {
         wanted.back().to = timeAfter( wanted.back().to, random );
         series.lastIs( wanted.back() );
      }
      expectSame( series.cells(), wanted );
      RateSeries restored;
      restored.packedIs( series.packed() );
      expectSame( restored.cells(), wanted );
      // It goes on as the one that was kept.
      RateCell const next{ timeAfter( 1e9, random ), 2e9, 1, 2, 3, 4, 5, 6 };
      restored.add( next );
      wanted.push_back( next );
      expectSame( restored.cells(), wanted );
   }
}

// The figure on which the memory of a box with thousands of links rests.
TEST( RateSeries, aQuietSecondTakesSixBytes ) {
   std::mt19937 random( 1 );
   RateSeries series;
   double end = 47'000.25;
   for( int i = 0; i < 60; ++i ) {
      double const from = end;
      do end = timeAfter( from, random );
      while( !( end - from > 0.9 && end - from < 1.1 ) );
      series.add( { from, end, 0, 0, 0, 0, 0, 0 } );
   }
   EXPECT_LE( series.packed().size(), 60u * 6 + 24 );
}

TEST( RateSeries, whatIsNoSeriesIsRefusedAndChangesNothing ) {
   std::mt19937 random( 7 );
   RateSeries series;
   for( int i = 0; i < 5; ++i ) series.add( { 10.0 + i, 11.0 + i, 0, 1, 2, 3, 3, 3 } );
   auto const before = series.cells();
   std::string const good = series.packed();
   std::vector<std::string> bad{ "", "\x02" + good.substr( 1 ), good + "\xff", good + std::string( 1, '\x00' ) };
   for( std::size_t cut = 2; cut < good.size(); ++cut ) {
      // A cut between two cells leaves a series.
      RateSeries shorter;
      try {
         shorter.packedIs( good.substr( 0, cut ) );
         EXPECT_LT( shorter.size(), before.size() );
      } catch( Kel::AttributeError const & ) {
      }
   }
   RateSeries many;
   for( int i = 0; i < 601; ++i ) many.add( { 1.0 * i, 1.0 * i, 0, 0, 0, 0, 0, 0 } );
   bad.push_back( many.packed() );
   for( std::string const & text : bad ) {
      EXPECT_THROW( series.packedIs( text ), Kel::AttributeError );
      expectSame( series.cells(), before );
   }
}

}  // namespace
}  // namespace Evidence
