// How the traffic of a loud interface goes on: it falls, and then by when it may be below the threshold; or it is
// stuck.
//
// Rests on the loud readings of the last load interval, in at most eight cells of their means, so that an interface
// costs the same whatever its profile says. Each direction that is not below the threshold is fitted by a line and by a
// decay; it falls when the fit is steeper than noise would make it, and the one that fits says when it arrives. What
// rises, stays level, or falls by less than a tenth in a load interval is stuck when that has been seen for a whole
// load interval, and until then nothing is said.
//
// Owned by Watched, which tells it of loud readings only, and drops it when they end. Knows no records and no clock.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "records/Interface.h"

namespace Evidence {

// Of a loud interface.
struct Pace {
   enum class Kind : uint8_t { unknown, slow, stuck };
   Kind kind = Kind::unknown;
   std::optional<double> quietIn = std::nullopt;  // s, an estimate, of what is slow; none where it would be a guess
   double stuckFor = 0;                           // s, of what is stuck: without a fall by a tenth
};

constexpr char const * enumName( Pace::Kind kind ) {
   switch( kind ) {
      case Pace::Kind::unknown: return "unknown";
      case Pace::Kind::slow: return "slow";
      case Pace::Kind::stuck: return "stuck";
   }
   return nullptr;
}

class Trend {
 public:
   // A loud reading that covers the time from `from` to `to`.
   void readingIs( double from, double to, Interface::IntfRates const & rates, double loadInterval );
   // As of `now`, which is not before the last reading.
   [[nodiscard]] Pace pace( double now, double thresholdBitsRate, double loadInterval ) const;

 private:
   struct Cell {
      double to = 0;      // s
      float seconds = 0;  // that it covers
      float in = 0;       // bit/s, mean
      float out = 0;
   };
   using Rate = float Cell::*;
   static constexpr std::size_t most = 8;
   static constexpr std::size_t former = most - 1;

   // Counted back from the latest, which is 0.
   [[nodiscard]] Cell const & cell( std::size_t back ) const {
      return back == 0 ? latest_ : ( *former_ )[( next_ + former - back ) % former];
   }
   void keepLatest();
   // How many of the latest cells tell of the last load interval.
   [[nodiscard]] std::size_t recent( double loadInterval ) const;
   // Seconds from the last reading until that direction is below the threshold; negative when it does not fall, none
   // when it falls too slowly for an estimate.
   [[nodiscard]] std::optional<double> fall( Rate rate, double threshold, std::size_t count ) const;

   // A reading touches no more than this, and the former cells only when one is full.
   Cell latest_;
   float low_ = 0;        // bit/s, the busier direction when it last fell by a tenth
   double lowSince_ = 0;  // s
   uint8_t next_ = 0;     // in the former cells
   uint8_t count_ = 0;    // of all cells
   std::unique_ptr<std::array<Cell, former>> former_;
};

}  // namespace Evidence
