// The latest readings of one interface, for as long as nobody asks for what is made of them.
//
// A reading goes into a window's cell and into a trend, and these lie far apart in memory, while hardly anybody looks
// at either. So some readings stand here side by side, and go there together: when there is no room for another, or
// somebody asks. They follow one another without a gap, and are all of one kind, whatever that means to their owner.
//
// Owned by Watched, which settles them.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <utility>

#include "kel/FetchAhead.h"
#include "records/Interface.h"

namespace Evidence {

class Readings {
 public:
   // False when it cannot stand here before those that do are taken. Times in seconds.
   [[nodiscard]] bool add( double from, double to, Interface::IntfRates const & rates, uint32_t kind ) {
      bool const silent = isZero( rates.inBitsRate ) && isZero( rates.outBitsRate );
      uint32_t const size = silent ? 1 : loudSlots;
      if( used_ > 0 && ( kind != kind_ || used_ + size > slots_.size() || slots_[latest_] != from ) ) return false;
      if( used_ == 0 ) {
         from_ = from;
         kind_ = kind;
      }
      latest_ = used_;
      used_ = static_cast<uint8_t>( used_ + size );
      slots_[latest_] = to;
      silent_ = static_cast<uint16_t>( ( silent_ & ~( 1u << latest_ ) ) | uint32_t{ silent } << latest_ );
      if( silent ) return true;
      slots_[latest_ + 1u] = rates.inBitsRate;
      slots_[latest_ + 2u] = rates.outBitsRate;
      return true;
   }
   // The next one may leave no room, if it is like the latest.
   [[nodiscard]] bool nearlyFull() const { return used_ + 2 * sizeOf( latest_ ) > slots_.size(); }
   // Of all that stand here.
   [[nodiscard]] uint32_t kind() const { return kind_; }
   // The last one that was added, also when it has been taken.
   [[nodiscard]] Interface::IntfRates latest() const { return ratesOf( latest_ ); }
   // From memory, where the next one goes.
   void fetchNext() const { Kel::fetch( &slots_[used_ % slots_.size()], sizeof slots_[0] ); }
   // Calls `take` with time from, time to and rates of each. To whoever asks meanwhile there is none here any more.
   template<class Take>
   void takeAll( Take const & take ) {
      uint32_t const used = std::exchange( used_, uint8_t{ 0 } );
      double from = from_;
      for( uint32_t i = 0; i < used; i += sizeOf( i ) ) {
         auto const rates = ratesOf( i );
         take( from, rates.updateTime, rates );
         from = rates.updateTime;
      }
   }

 private:
   static constexpr uint32_t loudSlots = 3;

   [[nodiscard]] static bool isZero( double rate ) { return std::bit_cast<uint64_t>( rate ) == 0; }
   [[nodiscard]] uint32_t sizeOf( uint32_t slot ) const { return ( silent_ >> slot & 1 ) != 0 ? 1 : loudSlots; }
   [[nodiscard]] Interface::IntfRates ratesOf( uint32_t slot ) const {
      double const to = slots_[slot];
      return sizeOf( slot ) == 1 ? Interface::IntfRates{ 0, 0, to }
                                 : Interface::IntfRates{ slots_[slot + 1], slots_[slot + 2], to };
   }

   uint8_t used_ = 0;
   uint8_t latest_ = 0;   // where it begins
   uint16_t silent_ = 1;  // a bit for each slot: a reading without traffic begins there
   uint32_t kind_ = 0;
   double from_ = 0;  // s, where the first begins
   // Of each reading when it ends in seconds and, unless nothing flowed, its rates in and out. With more of them a
   // window is looked at more seldom, which saves less and less, and an interface takes more memory.
   std::array<double, 13> slots_{};
};

}  // namespace Evidence
