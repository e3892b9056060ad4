// A run beside the recording that it was made from: what was decided then, and when the same was decided now.
//
// The n-th time that something was decided is set beside the n-th time in the other. What only one of them decided has
// nothing beside it. Knows no records: whoever heard of the decisions hands them over.
#pragma once

#include <string>
#include <vector>

#include "report/Moments.h"

namespace Report {

struct Decided {
   double time;       // s
   std::string who;   // "fabric", "fabric eth0", "eth0"
   std::string what;  // "ready", "drained", ...
};

// In the order of each list's times. Empty when there is nothing to compare.
[[nodiscard]] std::string comparison( std::vector<Decided> const & recorded, std::vector<Decided> const & replayed,
                                      Moments const & moments );

}  // namespace Report
