#include "linux/MonotonicCounter.h"

#include <limits>

namespace Host::Linux {
namespace {

// The counter table keeps 63 bits (Brim::MaybeU63).
constexpr std::uint64_t highest = std::numeric_limits<std::int64_t>::max();

bool fits( Octets const & octets ) { return octets.in <= highest && octets.out <= highest; }

// Of what fits, so the sums of 64 bits hold.
Octets sum( Octets const & offset, Octets const & raw ) { return { offset.in + raw.in, offset.out + raw.out }; }

}  // namespace

std::optional<MonotonicCounter::Value> MonotonicCounter::value( Octets const & raw ) {
   // One direction is enough: the other may have passed its last value again since the restart.
   bool const restarted = raw.in < lastRaw_.in || raw.out < lastRaw_.out;
   Octets const offset = restarted ? sum( offset_, lastRaw_ ) : offset_;
   if( !fits( raw ) || !fits( sum( offset, raw ) ) ) return std::nullopt;
   offset_ = offset;
   lastRaw_ = raw;
   return Value{ sum( offset, raw ), restarted };
}

}  // namespace Host::Linux
