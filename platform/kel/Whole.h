// Doubles as whole numbers, defined for every double there is. A cast is not: below 0, beyond the type and for what is
// not a number it may do anything.
#pragma once

#include <cstdint>

namespace Kel {

[[nodiscard]] constexpr bool fitsSigned64( double d ) { return d >= -0x1p63 && d < 0x1p63; }

// The number without its fraction, by way of a signed number, so that what is below 0 counts back from 2^64: -1 gives
// 2^64 - 1. What no 64-bit number can say gives the nearest one that can: the greatest from 2^64 on, that of -2^63
// below it. What is not a number gives 0.
[[nodiscard]] constexpr uint64_t truncated( double d ) {
   if( fitsSigned64( d ) ) [[likely]]
      return static_cast<uint64_t>( static_cast<int64_t>( d ) );
   if( d > 0 ) return d < 0x1p64 ? static_cast<uint64_t>( d ) : ~uint64_t{ 0 };
   return d < 0 ? uint64_t{ 1 } << 63 : 0;
}

// Likewise, but the nearest whole number, halves away from 0.
[[nodiscard]] constexpr uint64_t rounded( double d ) {
   if( !fitsSigned64( d ) ) [[unlikely]]
      return truncated( d );
   auto const whole = static_cast<int64_t>( d );
   double const fraction = d - static_cast<double>( whole );  // exact, and 0 where `whole` is great
   return static_cast<uint64_t>( whole + ( fraction >= 0.5 ? 1 : 0 ) - ( fraction <= -0.5 ? 1 : 0 ) );
}

}  // namespace Kel
