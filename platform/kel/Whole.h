// Doubles as whole numbers, defined for every double. A plain cast is not: below 0, beyond the type's range and for
// what is not a number anything may happen.
#pragma once

#include <cstdint>

namespace Kel {

[[nodiscard]] constexpr bool fitsSigned64( double d ) { return d >= -0x1p63 && d < 0x1p63; }

// The number without its fraction, by way of a signed number, so that what is below 0 counts back from 2^64: -1 gives
// 2^64 - 1. What does not fit into 64 bits gives the nearest that does: from 2^64 on the greatest number, below -2^63
// what -2^63 gives. What is not a number gives 0.
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
   // The greatest number below a half, so that what is just below a half does not become 1 by the addition's own
   // rounding. From 2^52 on, where every double is whole, it is too little to change it.
   constexpr double almostHalf = 0.49999999999999994;
   return static_cast<uint64_t>( static_cast<int64_t>( d < 0 ? d - almostHalf : d + almostHalf ) );
}

}  // namespace Kel
