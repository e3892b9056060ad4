// The latest readings of one interface, for as long as nobody asks for what is made of them.
//
// A reading goes into a window's cell and into a trend, and these lie far apart in memory, while hardly anybody looks
// at either. So a few readings stand here side by side, and go there together: when there is no room for another, or
// somebody asks. They follow one another without a gap.
//
// Owned by Watched, which settles them.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

#include "kel/FetchAhead.h"
#include "records/Interface.h"

namespace Evidence {

class Readings {
 public:
   // Whether one that begins at `from` can stand here as well, in seconds.
   [[nodiscard]] bool takes( double from ) const {
      return count_ == 0 || ( count_ < most && readings_[count_ - 1].to == from );
   }
   // The next one leaves no room.
   [[nodiscard]] bool nearlyFull() const { return count_ + 1 >= most; }
   void add( double from, double to, Interface::IntfRates const & rates ) {
      if( count_ == 0 ) from_ = from;
      latest_ = count_++;
      readings_[latest_] = { to, rates.inBitsRate, rates.outBitsRate };
   }
   // The last one that was added, also when it has been taken.
   [[nodiscard]] Interface::IntfRates latest() const {
      auto const [to, in, out] = readings_[latest_];
      return { in, out, to };
   }
   // From memory, where the next one goes.
   void fetchNext() const { Kel::fetch( readings_[count_ % most] ); }
   // Calls `take` with time from, time to and rates of each. To whoever asks meanwhile there is none here any more.
   template<class Take>
   void takeAll( Take const & take ) {
      uint32_t const count = std::exchange( count_, 0 );
      double from = from_;
      for( uint32_t i = 0; i < count; ++i ) {
         auto const [to, in, out] = readings_[i];
         take( from, to, Interface::IntfRates{ in, out, to } );
         from = to;
      }
   }

 private:
   struct Reading {
      double to;  // s
      double in;  // bit/s
      double out;
   };
   // With more a window is looked at more seldom, which saves less and less, and an interface takes more memory.
   static constexpr uint32_t most = 4;

   uint32_t count_ = 0;
   uint32_t latest_ = 0;
   double from_ = 0;  // s, where the first begins
   std::array<Reading, most> readings_{};
};

}  // namespace Evidence
