// The parameters of a request, as the one who is asked needs them.
//
// A parameter that is not known is a mistake, and none that is passed over: a plan for all of a site is not what
// somebody wants who misspelt the label. All throw BadQuery with a sentence.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "http/Target.h"
#include "memory/Ledger.h"
#include "plan/Plan.h"

namespace Fleet {

class BadQuery : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

using Parameters = Host::Target::Parameters;

struct PlanQuery {
   PlanRequest request;
   bool dryRun = false;
};
// box, label, unit, waves, soak, deadline, at-deadline, stay, dry-run
[[nodiscard]] PlanQuery planQuery( Parameters const & given, std::string const & by );

// Units by "unit=box/unit", and boxes, of which all units are meant, or those of one name by "unit=name".
struct UnitsQuery {
   std::vector<UnitName> units;
   Selection select;
};
[[nodiscard]] UnitsQuery unitsQuery( Parameters const & given );
// "without=box/unit", as often as needed.
[[nodiscard]] std::vector<UnitName> withoutQuery( Parameters const & given );
// "site=fra", once; left out: "", which is all of them.
[[nodiscard]] std::string siteQuery( Parameters const & given );
// box, unit (of one name, or of one box as box/unit), plan, since (s, Unix time), before (a record's number), most
[[nodiscard]] RecordQuery historyQuery( Parameters const & given );
void noQuery( Parameters const & given );

}  // namespace Fleet
