// A maintd that there is not: units that drain and come back in some seconds, and faults on demand.
//
//    active --enter--> entering --traffic has gone--> inMaintenance --exit--> leaving --two seconds--> active
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "box/Maintd.h"

namespace Fleet {

class MadeUpMaintd final : public Maintd {
 public:
   struct Faults {
      bool off = false;           // it does not answer
      bool trafficStays = false;  // no interface becomes quiet, and those that were are so no longer
   };

   // `random` outlives it.
   MadeUpMaintd( std::vector<std::string> const & units, std::mt19937_64 & random );

   void faultsAre( Faults const & faults ) { faults_ = faults; }

   // Time is that of the last call of units().
   [[nodiscard]] Units units( double now ) override;
   [[nodiscard]] Reply enter( std::string const & unit ) override;
   [[nodiscard]] Reply exit( std::string const & unit ) override;

 private:
   struct Its {
      UnitState state = UnitState::active;
      double since = 0;    // s
      double quietAt = 0;  // s, when its traffic has gone
      uint64_t generation = 0;
   };

   [[nodiscard]] Reply changed( std::string const & unit, UnitState to );
   void advance( Its & its ) const;
   [[nodiscard]] UnitStatus statusOf( Its const & its ) const;

   std::mt19937_64 & random_;
   Faults faults_;
   double now_ = 0;  // s
   std::map<std::string, Its> units_;
};

}  // namespace Fleet
