// Rates and durations as people read them.
#include "kel/QuantityText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

namespace Kel {
namespace {

TEST( QuantityText, threeDigitsOfARateAndTheUnitThatFits ) {
   for( auto const & [bits, text] : std::vector<std::pair<double, char const *>>{ { 0, "0 bps" },
                                                                                  { 0.5, "0.5 bps" },
                                                                                  { 999.4, "999 bps" },
                                                                                  { 999.5, "1 kbps" },
                                                                                  { 93400, "93.4 kbps" },
                                                                                  { 99960, "100 kbps" },
                                                                                  { 4e6, "4 Mbps" },
                                                                                  { 9.876e9, "9.88 Gbps" },
                                                                                  { 9.999e5, "1 Mbps" },
                                                                                  { 4e15, "4000 Tbps" },
                                                                                  { 1e300, "1e+288 Tbps" },
                                                                                  { -1e300, "-1e+300 bps" },
                                                                                  { NAN, "? bps" },
                                                                                  { INFINITY, "inf Tbps" } } ) {
      EXPECT_EQ( rateText( bits ), text );
   }
}

TEST( QuantityText, theTwoLargestUnitsOfADuration ) {
   for( auto const & [seconds, text] : std::vector<std::pair<double, char const *>>{ { 0, "0 s" },
                                                                                     { 0.25, "0.25 s" },
                                                                                     { 119, "119 s" },
                                                                                     { 120, "2 min" },
                                                                                     { 750, "12 min 30 s" },
                                                                                     { 3599.7, "1 h" },
                                                                                     { 7500, "2 h 5 min" },
                                                                                     { 2592000, "30 d" },
                                                                                     { -3, "-3 s" },
                                                                                     { 1e300, "1.16e+295 d" },
                                                                                     { INFINITY, "inf d" },
                                                                                     { NAN, "? s" } } ) {
      EXPECT_EQ( durationText( seconds ), text );
   }
}

}  // namespace
}  // namespace Kel
