#include "linux/MonotonicCounter.h"

#include <algorithm>
#include <limits>

namespace Host::Linux {
namespace {

// The counter table keeps 63 bits (Brim::MaybeU63).
constexpr std::uint64_t highest = std::numeric_limits<std::int64_t>::max();

// Neither part is above `highest` once limited, so 64 bits hold the sum.
std::uint64_t sum( std::uint64_t offset, std::uint64_t raw ) {
   return std::min( offset + std::min( raw, highest ), highest );
}

Octets sum( Octets const & offset, Octets const & raw ) {
   return { sum( offset.in, raw.in ), sum( offset.out, raw.out ) };
}

}  // namespace

Octets MonotonicCounter::value( Octets const & raw ) {
   // One direction is enough: the other may have passed its last value again since the restart.
   if( raw.in < lastRaw_.in || raw.out < lastRaw_.out ) handleRestart();
   lastRaw_ = raw;
   return sum( offset_, raw );
}

void MonotonicCounter::handleRestart() {
   offset_ = sum( offset_, lastRaw_ );
   lastRaw_ = {};
}

}  // namespace Host::Linux
