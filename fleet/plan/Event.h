// What the owner has decided, or has seen come of it: a line of its log, and a record of its ledger.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "memory/Ledger.h"
#include "orders/Orders.h"

namespace Fleet {

struct Event {
   // How full a group was, with the one unit that has just got leave to go out.
   struct Filled {
      std::string group;
      std::size_t out = 0;
      std::size_t mayBeOut = 0;
      std::size_t units = 0;
   };

   std::string what;                   // a word of those in docs/api/fleet.md
   std::string text;                   // a sentence, for people
   std::optional<UnitName> unit = {};  // absent: it is about no single one
   std::string plan = {};              // empty: about none
   std::string by = {};                // who has asked for it; empty: nobody, it follows from what was seen
   uint64_t order = 0;                 // number; 0: it is about none
   std::vector<Filled> budgets = {};   // all groups of a unit that got leave
};

[[nodiscard]] Record recordOf( Event const & event, double time );

}  // namespace Fleet
