// The octet counters of one interface that never go backwards, made of counters that may start again.
//
// A device's counters restart when its driver resets it or when it is deleted and comes back under its name. The
// published values go on from where they stood: what the device counts after its restart is added to that. A restart
// shows in either direction and takes both along. Bytes between the last read and the restart are lost; those between
// the restart and the next read count.
//
// A device that says more than a counter can reach does not know. Its word is not taken, since every later one would
// look like a counter that stands still.
#pragma once

#include <cstdint>
#include <optional>

namespace Host::Linux {

struct Octets {
   std::uint64_t in = 0;
   std::uint64_t out = 0;

   bool operator==( Octets const & ) const = default;
   // Modulo 2^64, each.
   Octets operator+( Octets const & other ) const { return { in + other.in, out + other.out }; }
   Octets operator-( Octets const & other ) const { return { in - other.in, out - other.out }; }
};

class MonotonicCounter {
 public:
   struct Value {
      Octets octets;   // at most 2^63 - 1 each
      bool restarted;  // since the value before
   };

   MonotonicCounter() = default;
   // One that was at `published`, of which the device's own count lacks `offset`.
   MonotonicCounter( Octets const & offset, Octets const & published )
      : offset_( offset ), lastRaw_( published - offset ) {}

   // What has to be added to what the device counts.
   [[nodiscard]] Octets const & offset() const { return offset_; }

   // What to publish for what the device counts now. None, and nothing changed, when that or the sum is above 2^63 - 1.
   std::optional<Value> value( Octets const & raw );

 private:
   Octets offset_;
   Octets lastRaw_;
};

}  // namespace Host::Linux
