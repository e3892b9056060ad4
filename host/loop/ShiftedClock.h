// The agent's clock where it has kept records over a start of the machine: it goes on from where it was, while the
// kernel's CLOCK_BOOTTIME begins anew.
#pragma once

#include "kel/Clock.h"

namespace Host {

class ShiftedClock final : public Kel::Clock {
 public:
   // `ahead`: s, of CLOCK_BOOTTIME; may be negative.
   explicit ShiftedClock( double ahead ) : ahead_( ahead ) {}

   [[nodiscard]] double now() const override { return kernel_.now() + ahead_; }
   [[nodiscard]] double ahead() const { return ahead_; }

 private:
   Kel::RealClock const kernel_;
   double const ahead_;
};

}  // namespace Host
