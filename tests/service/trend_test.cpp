// Whether what is loud falls, and when it arrives: readings of one interface, a story a line.
#include "evidence/Trend.h"

#include <cmath>
#include <functional>
#include <random>

#include <gtest/gtest.h>

namespace Evidence {
namespace {

constexpr double threshold = 100e3;  // bit/s
constexpr double interval = 60;      // s

// Readings of `step` seconds each, `seconds` long, of the rates that a function of the time gives.
Trend trendOf( double step, double seconds, std::function<Interface::IntfRates( double )> const & rates ) {
   Trend trend;
   for( double t = 0; t + step <= seconds + 1e-9; t += step )
      trend.readingIs( 1000 + t, 1000 + t + step, rates( t + step / 2 ), interval );
   return trend;
}

using Rates = Interface::IntfRates;

TEST( Trend, aFallIsSlowWithTheTimeThatItStillTakes ) {
   struct Case {
      char const * what;
      double step;
      std::function<Rates( double )> rates;
      double due;  // s after the beginning
   };
   double const halving = std::log( 4e6 / threshold ) / std::log( 2.0 ) * 20;
   Case const cases[] = {
      { "halves every 20 s", 10,
        []( double t ) {
           return Rates{ 0, 4e6 * std::exp2( -t / 20 ), 0 };
        },
        halving },
      { "the same, each second", 1,
        []( double t ) {
           return Rates{ 0, 4e6 * std::exp2( -t / 20 ), 0 };
        },
        halving },
      { "by the same amount", 10,
        []( double t ) {
           return Rates{ 4e6 - 39e3 * t, 50e3, 0 };
        },
        100 },
      { "the later one decides", 10,
        []( double t ) {
           return Rates{ 4e6 - 39e3 * t, 2.1e6 - 25e3 * t, 0 };
        },
        100 },
   };
   for( auto const & [what, step, rates, due] : cases ) {
      Pace const pace = trendOf( step, 60, rates ).pace( 1063, threshold, interval );
      ASSERT_EQ( pace.kind, Pace::Kind::slow ) << what;
      ASSERT_TRUE( pace.quietIn ) << what;
      EXPECT_NEAR( *pace.quietIn, due - 63, 4 ) << what;
   }
   // What is due already is due now, and what takes for ever has no time.
   auto const gone = trendOf( 10, 60, cases[2].rates ).pace( 2000, threshold, interval );
   EXPECT_EQ( gone.quietIn, 0 );
   auto const lazy = trendOf( 10, 60, []( double t ) { return Rates{ 0, 4e9 * std::exp2( -t / 200 ), 0 }; } );
   EXPECT_EQ( lazy.pace( 1060, threshold, interval ).kind, Pace::Kind::slow );
   EXPECT_FALSE( lazy.pace( 1060, threshold, interval ).quietIn );
}

TEST( Trend, whatDoesNotFallForALoadIntervalIsStuck ) {
   std::mt19937 random( 7 );
   std::uniform_real_distribution<double> noise( 0.9, 1.1 );
   struct Case {
      char const * what;
      std::function<Rates( double )> rates;
   };
   Case const cases[] = {
      { "level",
        []( double ) {
           return Rates{ 4e6, 0, 0 };
        } },
      { "rising",
        []( double t ) {
           return Rates{ 0, 1e6 + 1e4 * t, 0 };
        } },
      { "noise",
        [&]( double ) {
           return Rates{ 0, 4e6 * noise( random ), 0 };
        } },
      { "barely falling",
        []( double t ) {
           return Rates{ 0, 4e6 * ( 1 - 0.0005 * t ), 0 };
        } },
      { "one falls, one does not",
        []( double t ) {
           return Rates{ 4e6 - 30e3 * t, 200e3, 0 };
        } },
   };
   for( auto const & [what, rates] : cases ) {
      EXPECT_EQ( trendOf( 10, 50, rates ).pace( 1050, threshold, interval ).kind, Pace::Kind::unknown ) << what;
      bool const falls = std::string( what ).starts_with( "one" );
      Pace const pace = trendOf( 10, 130, rates ).pace( 1130, threshold, interval );
      EXPECT_EQ( pace.kind, falls ? Pace::Kind::unknown : Pace::Kind::stuck ) << what;
      if( falls ) continue;
      EXPECT_NEAR( pace.stuckFor, 130, 60 ) << what;
   }
   // A fall that has ended above the threshold is one no longer.
   auto const landed = trendOf( 10, 200, []( double t ) { return Rates{ std::max( 4e6 - 1e5 * t, 1e6 ), 0, 0 }; } );
   EXPECT_EQ( landed.pace( 1200, threshold, interval ).kind, Pace::Kind::stuck );
   EXPECT_EQ( landed.pace( 1200, threshold, interval ).stuckFor, 160 );
   // Directions that take turns are each below it on average, and nothing falls.
   auto const turns = trendOf( 1, 130, []( double t ) {
      double const in = std::fmod( t, 2 ) < 1 ? 150e3 : 0;
      return Rates{ in, 150e3 - in, 0 };
   } );
   EXPECT_EQ( turns.pace( 1130, threshold, interval ).kind, Pace::Kind::stuck );
}

TEST( Trend, aFewReadingsSayNothingUnlessTheLoadIntervalIsAsShort ) {
   Trend const trend = trendOf( 10, 30, []( double ) { return Rates{ 4e6, 0, 0 }; } );
   EXPECT_EQ( trend.pace( 1030, threshold, interval ).kind, Pace::Kind::unknown );
   EXPECT_EQ( trend.pace( 1030, threshold, 0 ).kind, Pace::Kind::stuck );
}

}  // namespace
}  // namespace Evidence
