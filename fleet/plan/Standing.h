// How units and groups stand as far as budgets are concerned, as the dispatcher tells it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "inventory/Inventory.h"

namespace Fleet {

struct Standing {
   bool out = true;
   std::string why;  // of one that is out: "draining by plan-3", "silent for 50 s"; empty when it is in service
};

// What taking units out would mean for a group.
struct Room {
   Group const * group = nullptr;
   std::size_t out = 0;         // now
   std::size_t wouldBeOut = 0;  // with those that were asked about
   std::vector<UnitName> who;   // that are out now
   [[nodiscard]] bool enough() const { return wouldBeOut <= group->mayBeOut(); }
};

}  // namespace Fleet
