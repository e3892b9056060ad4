// What happened to the units and interfaces of one state database, kept for a summary or a picture after the run.
//
// It hears of the records through watchers, which even a crash of the plug-in leaves in place, and changes nothing. A
// unit or an interface is in it from its first record on and stays, with all it has been through, when the record goes.
// Made before the run, and only when somebody asks for a report, so that a run without one costs nothing.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "kel/Clock.h"
#include "records/MonIntfStatus.h"
#include "records/Unit.h"
#include "report/RateBuckets.h"
#include "report/Steps.h"
#include "state/MaintenanceState.h"

namespace Report {

struct UnitHistory {
   // One time in maintenance, from its beginning until the unit was on its way back.
   struct Pass {
      double began;                     // s
      std::optional<double> completed;  // s, when the rate monitor reported it complete
      std::optional<double> left;       // s
   };

   Steps<Maintenance::Unit::State> states;  // unknown while there is no record
   std::vector<double> completed;           // s, all such reports

   [[nodiscard]] std::vector<Pass> passes() const;
};

struct IntfHistory {
   Steps<Maintenance::MonIntfState> states;  // not monitored while there is no record
   Steps<double> threshold;                  // bit/s in each direction, of the profile in force
   Steps<bool> shutDown;                     // held down for maintenance
   RateBuckets rates;
   uint64_t samples = 0;
   uint64_t spikes = 0;              // runs of samples not below the threshold, after the drain
   Interface::IntfRates lastRates;   // bit/s
   std::optional<double> drainedIn;  // s from the beginning of monitoring; none if its traffic has not gone
};

class History {
 public:
   // Both outlive it.
   History( Maintenance::MaintenanceState const & state, Kel::Clock const & clock );
   History( History const & ) = delete;
   History & operator=( History const & ) = delete;
   ~History();

   [[nodiscard]] double began() const { return began_; }  // s, when this was made
   [[nodiscard]] double now() const { return clock_.now(); }
   [[nodiscard]] std::map<Kel::Name, UnitHistory> const & units() const { return units_; }
   [[nodiscard]] std::map<Lumo::IntfId, IntfHistory> const & intfs() const { return intfs_; }

 private:
   class Ear;
   class IntfEar;

   void handleUnit( Kel::Name const & unit );
   void handleIntf( Lumo::IntfId intf );
   void handleCause( Kel::Name const & cause );
   void handleShutdown( Lumo::IntfId intf );
   void handleCompletion( Stage::AgentStatusKey const & key );

   Maintenance::MaintenanceState const & state_;
   Kel::Clock const & clock_;
   double const began_;
   std::map<Kel::Name, UnitHistory> units_;
   std::map<Lumo::IntfId, IntfHistory> intfs_;

   std::map<Kel::Name, std::unique_ptr<Ear>> unitEars_;
   std::map<Lumo::IntfId, std::unique_ptr<IntfEar>> intfEars_;
   std::unique_ptr<Ear> shutdownEar_;
   std::unique_ptr<Ear> const unitDirEar_, intfDirEar_, causeDirEar_, completionEar_;
};

}  // namespace Report
