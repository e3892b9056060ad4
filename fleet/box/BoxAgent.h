// The agent of one box: carries out the newest order of each unit, once, and tells how the units stand.
//
//    none --kept--> begun --maintd agrees--> carried --deadline--> gaveBack
//      |              |                         |
//      +--> expired   +--> refused, expired     +--active again--> undone
//
// What it is about to do is kept before maintd is asked, with the generation that the unit has then. So an agent that
// starts anew knows from the generation whether maintd has heard of it, and no order is carried out twice.
//
// Cut off from the fleet it goes on with what is begun, up to its deadline, and begins nothing. Acts for no other box.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "box/Maintd.h"
#include "memory/Memory.h"
#include "orders/Orders.h"

namespace Fleet {

class BoxAgent {
 public:
   // A new life of it; `now` is in Unix time, as everywhere here. Throws MemoryFault.
   BoxAgent( std::string box, Memory & memory, Maintd & maintd, double heartbeatSeconds, double now );

   // Orders that are not newer than what it has seen change nothing. Throws MemoryFault, with nothing changed.
   void desiredIs( Desired const & desired );
   void connectedIs( bool connected );
   // Once a second: looks at the units, does what is to be done, and returns the status where one is due. Throws
   // MemoryFault, with nothing done that is not kept.
   [[nodiscard]] std::optional<Status> turn( double now );

 private:
   // The newest order of a unit and what came of it.
   struct Work {
      Order order;
      Outcome outcome = Outcome::none;
      std::string why = {};
      uint64_t generationBefore = 0;  // the unit's, when it was begun or given back
      double begun = 0;               // s, Unix time
      bool proven = false;            // it has been ready, so its deadline no longer matters
   };

   [[nodiscard]] static std::string rowOf( Work const & work );
   [[nodiscard]] static Work workFrom( std::string const & key, std::string const & row );
   void keep( std::string const & unit, Work const & work );

   void advance( std::string const & unit, Work work, Maintd::Unit const * its, double now );
   void begin( std::string const & unit, Work work, Maintd::Unit const & its, double now );
   void ask( std::string const & unit, Work work, double now );
   void goOn( std::string const & unit, Work work, Maintd::Unit const & its, double now );
   [[nodiscard]] Status statusAt( double now ) const;
   [[nodiscard]] bool due( Status const & status, double now ) const;

   std::string const box_;
   Memory & memory_;
   Maintd & maintd_;
   double const heartbeatSeconds_;
   uint64_t life_ = 0;
   uint64_t sequence_ = 0;
   bool connected_ = false;
   std::map<std::string, Work> works_;  // by unit
   Maintd::Units seen_;
   std::optional<Status> sent_;  // the last one; absent: none since it is connected
};

}  // namespace Fleet
