#include "linux/MonotonicCounter.h"

#include <limits>

namespace Host::Linux {
namespace {

// The counter table keeps 63 bits (Brim::MaybeU63).
constexpr std::uint64_t highest = std::numeric_limits<std::int64_t>::max();

bool fits( Octets const & octets ) { return octets.in <= highest && octets.out <= highest; }

}  // namespace

std::optional<MonotonicCounter::Value> MonotonicCounter::value( Octets const & raw ) {
   // One direction is enough: the other may have passed its last value again since the restart.
   bool const restarted = raw.in < lastRaw_.in || raw.out < lastRaw_.out;
   Octets const offset = restarted ? offset_ + lastRaw_ : offset_;
   // Sums of two that fit are below 2^64.
   if( !fits( raw ) || !fits( offset + raw ) ) return std::nullopt;
   offset_ = offset;
   lastRaw_ = raw;
   return Value{ offset + raw, restarted };
}

}  // namespace Host::Linux
