// What the owner of the fleet keeps: the newest order of every unit, plans, brakes, and the number of the last order.
//
// Changed in memory first and then kept in one transaction, before anybody hears of it. Where that fails all is read
// anew, so that nothing is believed that is not on disk.
#pragma once

#include <map>
#include <set>
#include <string>

#include "memory/Ledger.h"
#include "plan/Plan.h"

namespace Fleet {

// The newest order of a unit, and whether the unit counts as out for its sake: from the order until fresh evidence says
// that it is in service, and that nothing of the order is still to come.
struct Slot {
   Order order;
   double issued = 0;  // s, Unix time
   bool open = true;
   Outcome told = Outcome::none;  // by its box, as far as it is in the ledger

   bool operator==( Slot const & ) const = default;
};

// A site in which no plan orders anything.
struct Brake {
   std::string by;
   double since = 0;  // s, Unix time

   bool operator==( Brake const & ) const = default;
};

class Books {
 public:
   // Reads what is there. Throws MemoryFault.
   explicit Books( Ledger & memory );

   [[nodiscard]] uint64_t lastNumber() const { return lastNumber_; }
   [[nodiscard]] std::map<UnitName, Slot> const & slots() const { return slots_; }
   [[nodiscard]] Slot const * slot( UnitName const & unit ) const;  // null: it never had an order
   [[nodiscard]] std::map<std::string, Plan> const & plans() const { return plans_; }
   [[nodiscard]] std::map<std::string, Brake> const & brakes() const { return brakes_; }  // by site; "" is all of them

   // Notes it; kept with the next keep().
   void slotIs( UnitName const & unit, Slot const & slot );
   void planIs( Plan const & plan );
   void planDel( std::string const & id );
   void brakeIs( std::string const & site, Brake const & brake );
   void brakeDel( std::string const & site );
   [[nodiscard]] uint64_t numberNext();
   [[nodiscard]] uint64_t planNumberNext();
   // From here on numbers are larger than that.
   void lastNumberIs( uint64_t number );

   // All that was noted, and what has happened, in one transaction; nothing where there is neither. Throws MemoryFault,
   // after which what was noted is gone; where even that cannot be read anew, it goes with the next keep(), which
   // throws, too.
   void keep( Records const & happened );
   [[nodiscard]] Records happened( RecordQuery const & query ) const { return memory_.happened( query ); }

 private:
   void read();

   Ledger & memory_;
   bool unread_ = true;  // what is here is not all on disk, and could not be read anew
   uint64_t lastNumber_ = 0;
   uint64_t lastPlan_ = 0;
   std::map<UnitName, Slot> slots_;
   std::map<std::string, Plan> plans_;
   std::map<std::string, Brake> brakes_;
   Memory::Changes noted_;
};

}  // namespace Fleet
