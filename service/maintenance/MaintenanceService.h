// The maintenance service as a whole: configuration, units and their stages, evidence. maintd and maintsim both stand
// on it and on nothing below.
//
//    config --> ConfigRecords --> records --> plug-in --> marks, monitors --> Ledger --> ready? --> UnitService
//                                                                                  '--> views
//
// Made before the plug-in is loaded, over a state database in which an earlier service may have left units under way,
// windows and held links: those go on. It has no clock, kernel, file or socket of its own. Everything happens in turns
// of the activity loop.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "config/Config.h"
#include "evidence/Ledger.h"
#include "links/LinkRecords.h"
#include "units/ConfigRecords.h"
#include "units/UnitService.h"
#include "views/Views.h"

namespace Service {

class MaintenanceService {
 public:
   // What the host brings; all of it outlives the service.
   struct Host {
      Kel::Ptr<Dovra::EntityManager> database;
      Maintenance::MaintenanceState & state;
      Kel::Ptr<KelQuill::EntityManager> counters;
      LinkRecords & links;
      Hooks & hooks;
      UnitService::OnEvent onEvent;             // what an operator should hear of; may be empty
      std::function<double()> wallClockOffset;  // s to add to Kel::now() for Unix time; empty: the clock is invented
      // Why the host would never take this link down; empty where it would. May be empty: there is no such link.
      std::function<std::string( Lumo::IntfId )> neverShut = {};
   };

   MaintenanceService( Host const & host, Config::Config config );

   // The differences are applied, or nothing is changed and each reason is in the answer.
   std::vector<std::string> reload( Config::Config config );
   // Interfaces of the configuration that are not there or can never be watched: "unit fabric: eth9: ...".
   [[nodiscard]] std::vector<std::string> warnings() const;

   // Into the windows of those units under way that have the interface: what link control has to say of it.
   void noteLink( Lumo::IntfId intf, std::string const & text ) { ledger_.noteLink( intf, text ); }

   [[nodiscard]] Config::Config const & config() const { return records_.config(); }
   [[nodiscard]] UnitService & units() { return units_; }
   [[nodiscard]] UnitService const & units() const { return units_; }
   [[nodiscard]] Evidence::Ledger & ledger() { return ledger_; }
   [[nodiscard]] Views const & views() const { return views_; }

 private:
   bool reloading_ = false;
   ConfigRecords records_;  // before all that read what it writes
   Evidence::Ledger ledger_;
   UnitService units_;
   Views views_;
};

}  // namespace Service
