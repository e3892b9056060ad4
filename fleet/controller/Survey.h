// One look at the whole fleet: how every unit stands, and so how many of each group are out.
//
// Taken once for all that is told of one moment. Refers to the inventory and to what boxes have said: good until either
// changes, so for as long as an answer is made.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "plan/Dispatcher.h"

namespace Fleet {

struct Survey {
   struct BoxLook {
      Box const * box = nullptr;
      Dispatcher::Heard const * heard = nullptr;  // null: never
      bool silent = true;
      std::string trouble = {};     // why what it has said is not to be believed; empty where it is
      std::vector<Standing> units;  // in the order of the box's
   };
   struct OutUnit {
      UnitName unit;
      std::string const * why;
   };

   double now = 0;              // s, Unix time
   std::vector<BoxLook> boxes;  // in the order of the inventory
   std::map<Group const *, std::vector<OutUnit>> out;
   std::size_t units = 0;
   std::size_t inService = 0;
   std::size_t silentBoxes = 0;
};

[[nodiscard]] Survey surveyOf( Dispatcher const & dispatcher, double now );
[[nodiscard]] Survey::BoxLook lookAt( Dispatcher const & dispatcher, Box const & box, double now );

}  // namespace Fleet
