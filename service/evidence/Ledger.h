// Whether a unit is quiet now, and how we know: the accounts of its interfaces, judged after every turn.
//
// Owned by the maintenance service. Hears of links, monitors, error-disable entries, profiles and memberships through
// their records and keeps a run of readings per interface (evidence/Run.h), for all units together: a unit that enters
// later profits from quiet time that was measured before. At the end of each turn that changed something, all that
// changed is applied to the runs first and the accounts are judged then, and once more at the moment at which waiting
// alone would change a verdict. It decides nothing: who asks for readiness are the stage manager and the views.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/EventLog.h"
#include "evidence/Accounts.h"
#include "evidence/Trend.h"
#include "evidence/Windows.h"
#include "quill/EntityManager.h"
#include "state/MaintenanceState.h"

namespace Evidence {

class Accounting;

class Ledger {
 public:
   // Why an interface can never be watched; empty when it can, or when nothing is known that forbids it.
   using NeverWatched = std::function<std::string( Lumo::IntfId )>;

   // All outlive this. Whoever is judged changes only within a turn. Verdicts and spikes are told to `events`.
   Ledger( Dovra::EntityManager & database, Maintenance::MaintenanceState const & state,
           Kel::Ptr<KelQuill::EntityManager> const & counters, NeverWatched neverWatched, Service::EventLog & events );
   ~Ledger();

   // The unit is on its way through maintenance: an account for each of `intfs`, judged by the window. Again with other
   // interfaces, or with more of them left out in the window: accounts of those that stay go on.
   void unitIs( Kel::Name const & unit, std::vector<Lumo::IntfId> const & intfs, Kel::Ptr<Window> const & window );
   // It is active again: its accounts go.
   void unitDel( Kel::Name const & unit );
   // Profiles, their selection or what can be watched may have changed otherwise than through notifications.
   void handleProfiles();

   // Into the windows of those units that have an account of the interface: what happened to its link.
   void noteLink( Lumo::IntfId intf, std::string const & text );

   // Judges the unit now, whatever has changed by notifications or without, and says whether it is ready.
   bool ready( Kel::Name const & unit );
   // The earliest last reading among its quiet accounts; none when the unit is not ready or no account rests on
   // readings.
   [[nodiscard]] std::optional<double> provenUntil( Kel::Name const & unit ) const;
   // What keeps an account from being settled or, when it is, what it rests on; for people.
   [[nodiscard]] std::string why( Kel::Name const & unit, Lumo::IntfId intf ) const;
   // Seconds that a quiet, down or gone account still needs, if nothing happens; 0 when it is settled, none when that
   // cannot be said.
   [[nodiscard]] std::optional<double> stillNeeded( Kel::Name const & unit, Lumo::IntfId intf ) const;
   // Whether a loud account falls or is stuck; unknown of all others, and where that cannot be said.
   [[nodiscard]] Pace pace( Kel::Name const & unit, Lumo::IntfId intf ) const;
   // Of the last reading, bit/s; none when there is none that still counts.
   [[nodiscard]] std::optional<Interface::IntfRates> rates( Lumo::IntfId intf ) const;
   // The profile by which the interface is judged, or would be; null when there is none.
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> profile( Lumo::IntfId intf ) const;

   [[nodiscard]] Kel::Ptr<UnitAccountsDir> const & accounts() const { return accounts_; }
   [[nodiscard]] Kel::Ptr<WindowDir> const & windows() const { return windows_; }

 private:
   Kel::Ptr<UnitAccountsDir> const accounts_;
   Kel::Ptr<WindowDir> const windows_;
   std::unique_ptr<Accounting> const accounting_;
};

}  // namespace Evidence
