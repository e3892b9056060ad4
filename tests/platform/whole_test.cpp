// Doubles as whole numbers, at every boundary there is.
#include "kel/Whole.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr uint64_t top = uint64_t{ 1 } << 63;
constexpr uint64_t greatest = std::numeric_limits<uint64_t>::max();

TEST( Whole, everyDoubleHasANumber ) {
   struct {
      double d;
      uint64_t truncated, rounded;
   } const cases[] = {
      { 0, 0, 0 },
      { -0.0, 0, 0 },
      { 0.5, 0, 1 },
      { std::nextafter( 0.5, 0 ), 0, 0 },
      { 1.5, 1, 2 },
      { 2.5, 2, 3 },
      { std::nextafter( 2.5, 0 ), 2, 2 },
      { 0x1p52 - 0.5, ( uint64_t{ 1 } << 52 ) - 1, uint64_t{ 1 } << 52 },
      { 0x1p53 - 1, ( uint64_t{ 1 } << 53 ) - 1, ( uint64_t{ 1 } << 53 ) - 1 },
      { std::nextafter( 0x1p63, 0 ), top - 1024, top - 1024 },
      { 0x1p63, top, top },
      { 0x1p63 + 2048, top + 2048, top + 2048 },
      { std::nextafter( 0x1p64, 0 ), greatest - 2047, greatest - 2047 },
      { 0x1p64, greatest, greatest },
      { 1e300, greatest, greatest },
      { infinity, greatest, greatest },
      // Below 0 a number counts back from 2^64.
      { -0.4, 0, 0 },
      { -0.5, 0, greatest },
      { -1, greatest, greatest },
      { -1.5, greatest, greatest - 1 },
      { -0x1p63, top, top },
      { std::nextafter( -0x1p63, -infinity ), top, top },
      { -1e300, top, top },
      { -infinity, top, top },
      { std::nan( "" ), 0, 0 },
   };
   for( auto const & c : cases ) {
      EXPECT_EQ( Kel::truncated( c.d ), c.truncated ) << c.d;
      EXPECT_EQ( Kel::rounded( c.d ), c.rounded ) << c.d;
   }
}

}  // namespace
