// The rates of one interface over a run of any length, in memory that does not grow with it.
//
// Samples that fall into one cell of time share a bucket, which keeps the highest rates. When all buckets are taken,
// cells become twice as wide and neighbours are merged: no maximum and no spike is ever lost, only its exact time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Report {

struct RateBucket {
   double from, to;         // s: its samples tell of this time
   double inBits, outBits;  // bit/s, the highest of its samples
   uint32_t spikes;         // how many began in it
};

class RateBuckets {
 public:
   static constexpr std::size_t enoughForAPicture = 1500;

   explicit RateBuckets( std::size_t capacity = enoughForAPicture ) : capacity_( capacity ) {}

   // A sample that was taken at `to` and tells of the time since `from`. Samples come in the order of time.
   void sampleIs( double from, double to, double inBits, double outBits );
   // A spike began with the latest sample, which there must be.
   void spikeIs() { ++buckets_.back().spikes; }

   [[nodiscard]] bool empty() const { return buckets_.empty(); }
   // In the order of time. A bucket that begins later than the one before it ended follows a time without samples.
   [[nodiscard]] std::vector<RateBucket> const & buckets() const { return buckets_; }
   [[nodiscard]] double cellSeconds() const { return cellSeconds_; }

 private:
   [[nodiscard]] bool sharesCell( RateBucket const & a, RateBucket const & b ) const;
   void add( RateBucket const & bucket );
   void widen();

   std::size_t const capacity_;
   double cellSeconds_ = 1;  // no interface is sampled more often
   std::vector<RateBucket> buckets_;
};

}  // namespace Report
