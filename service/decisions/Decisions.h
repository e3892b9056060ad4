// What the service and the rate monitor decide, as it happens: a unit's state, whether it is ready or disturbed, which
// interface has drained, which one is proven quiet.
//
// Reads records, changes nothing. Whoever wants to compare two runs, such as a recording and its replay, has one of
// these on each: what counts as a decision is said here and nowhere else. What was decided before this was made is not
// told.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "dovra/EntityManager.h"
#include "evidence/Accounts.h"
#include "kel/ReactorMap.h"
#include "records/MonIntfStatus.h"
#include "records/Unit.h"
#include "state/MaintenanceState.h"

namespace Service {

struct Decision {
   std::string unit;       // empty: of the interface, whatever unit it is in
   std::string interface;  // empty: of the unit
   std::string is;         // "entering", "in maintenance", ..., "ready", "drained", "proven quiet", ...

   bool operator==( Decision const & ) const = default;
};

class Decisions {
 public:
   using Told = std::function<void( Decision const & decision )>;

   // `state` outlives this.
   Decisions( Maintenance::MaintenanceState const & state, Dovra::EntityManager & database, Told told );
   Decisions( Decisions const & ) = delete;
   Decisions & operator=( Decisions const & ) = delete;
   ~Decisions();

 private:
   class KelUnit;
   class KelUnitDir;
   class KelAccount;
   class KelAccounts;
   class KelAccountsDir;
   class KelMonitor;
   class KelMonitorDir;

   Told const told_;
   Kel::ReactorMap<KelUnit, Kel::String8, Decisions> units_;
   Kel::ReactorMap<KelAccounts, Kel::Name, Decisions> accounts_;
   Kel::ReactorMap<KelMonitor, Lumo::IntfId, Decisions> monitors_;
   std::unique_ptr<KelUnitDir> const unitDir_;
   std::unique_ptr<KelAccountsDir> const accountsDir_;
   std::unique_ptr<KelMonitorDir> const monitorDir_;
};

}  // namespace Service
