// The cells of rates of one interface in a window, in the order of time.
//
// Thousands of interfaces have up to hundreds of cells each, and hardly anybody ever reads them: so all but the last,
// which is still growing, are kept packed, without loss. What costs nothing is what is so in most of them: a cell that
// begins where the one before ended, times that are whole nanoseconds, no traffic, or rates that are a number of octets
// over the time of the cell. Reading unpacks all.
//
// A cell packed: a byte that says how the rest is written (RateSeries.cpp), the times, the rates in, the rates out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kel/FetchAhead.h"
#include "kel/Fields.h"
#include "kel/Ptr.h"

namespace Evidence {

// The rates of readings and other samples that fell into one cell of time, bit/s.
struct RateCell {
   KEL_VALUE( RateCell, "Evidence::RateCell" )
   KEL_FIELD( double, from )  // s, that the samples tell of
   KEL_FIELD( double, to )
   KEL_FIELD( double, inLow )
   KEL_FIELD( double, inMean )
   KEL_FIELD( double, inHigh )
   KEL_FIELD( double, outLow )
   KEL_FIELD( double, outMean )
   KEL_FIELD( double, outHigh )
   KEL_VALUE_END( RateCell )
};

using RateCells = std::vector<RateCell>;

class RateSeries {
 public:
   [[nodiscard]] std::size_t size() const { return count_; }
   // The last one; there is one.
   [[nodiscard]] RateCell const & last() const { return last_; }
   [[nodiscard]] RateCells cells() const;
   void cellsIs( RateCells const & cells );
   void add( RateCell const & cell );
   void lastIs( RateCell const & cell ) { last_ = cell; }

   // From memory, where the next one is added.
   void fetchEnd() const {
      if( !former_.empty() ) Kel::fetch( former_.data() + former_.size() - 1, mostBytes );
   }

   // All of it as one text, for whoever keeps it. Its first byte is the version.
   [[nodiscard]] std::string packed() const;
   // Throws AttributeError for a text that no series has packed.
   void packedIs( std::string_view text );

   static constexpr std::size_t mostBytes = 1 + 8 * sizeof( double );  // of a packed cell

 private:
   RateCell last_{};
   uint32_t count_ = 0;
   double before_ = 0;                  // s, where the cell before the last ends
   std::vector<unsigned char> former_;  // packed
};

// Who may have rates for the record of an interface that do not stand in it yet.
class RateSource : public Kel::PtrInterface {
 public:
   // They are written now.
   virtual void settle() = 0;
};

}  // namespace Evidence
