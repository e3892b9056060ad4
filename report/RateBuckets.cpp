#include "report/RateBuckets.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Report {

void RateBuckets::sampleIs( double from, double to, double inBits, double outBits ) {
   add( { from, to, inBits, outBits, 0 } );
   // Once may not be enough: where samples are far apart, neighbours need not share the wider cell yet.
   while( buckets_.size() > capacity_ ) widen();
}

bool RateBuckets::sharesCell( RateBucket const & a, RateBucket const & b ) const {
   // By the end alone: a sample belongs where it was taken, however long the time that it tells of. Cells are counted
   // from time 0, so widening makes one of each two and splits none.
   return std::floor( a.to / cellSeconds_ ) == std::floor( b.to / cellSeconds_ );
}

void RateBuckets::add( RateBucket const & bucket ) {
   // Only the last is asked, as samples come in the order of time.
   if( buckets_.empty() || !sharesCell( buckets_.back(), bucket ) ) {
      buckets_.push_back( bucket );
      return;
   }
   RateBucket & last = buckets_.back();
   last.to = bucket.to;
   last.inBits = std::max( last.inBits, bucket.inBits );
   last.outBits = std::max( last.outBits, bucket.outBits );
   last.spikes += bucket.spikes;
}

void RateBuckets::widen() {
   cellSeconds_ *= 2;
   for( RateBucket const & bucket : std::exchange( buckets_, {} ) ) add( bucket );
}

}  // namespace Report
