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
#include <memory>
#include <string>
#include <vector>

#include "config/Config.h"
#include "events/EventLog.h"
#include "evidence/Ledger.h"
#include "links/LinkRecords.h"
#include "maintenance/LinkEvents.h"
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
      // What an operator should hear of is told there; null: the service makes one of its own.
      std::shared_ptr<EventLog> events;
      std::function<double()> wallClockOffset;  // s to add to Kel::now() for Unix time; empty: the clock is invented
      // Why the host would never take this link down; empty where it would. May be empty: there is no such link.
      std::function<std::string( Lumo::IntfId )> neverShut = {};
   };

   MaintenanceService( Host const & host, Config::Config config );

   // The differences are applied, or nothing is changed and each reason is in the answer.
   std::vector<std::string> reload( Config::Config config, std::string const & requestedBy = "" );
   // For the history: what was asked for came to nothing before the service was asked.
   void tellRefused( std::string const & unit, std::string const & request, std::string const & requestedBy,
                     std::vector<std::string> const & why );
   void tellNotReloaded( std::vector<std::string> const & why, std::string const & requestedBy );
   // Interfaces of the configuration that are not there or can never be watched: "unit fabric: eth9: ...".
   [[nodiscard]] std::vector<std::string> warnings() const;

   // Into the windows of those units under way that have the interface: what link control has to say of it.
   void noteLink( Lumo::IntfId intf, std::string const & text ) { ledger_.noteLink( intf, text ); }

   // What link control has done, for the history.
   void tellHold( Lumo::IntfId intf, Severity severity, std::string const & text );

   [[nodiscard]] std::shared_ptr<EventLog> const & events() const { return events_; }
   // Whether it is of the unit, or of no unit in particular and of one of its interfaces.
   [[nodiscard]] bool concerns( Event const & event, std::string const & unit ) const;
   [[nodiscard]] Config::Config const & config() const { return records_.config(); }
   [[nodiscard]] UnitService & units() { return units_; }
   [[nodiscard]] UnitService const & units() const { return units_; }
   [[nodiscard]] Evidence::Ledger & ledger() { return ledger_; }
   [[nodiscard]] Views const & views() const { return views_; }

 private:
   [[nodiscard]] std::string meant( Lumo::IntfId intf ) const;
   void tellTakenOver() const;
   void tellOf( Lumo::IntfId intf, Told what ) const;

   Maintenance::MaintenanceState const & state_;
   std::shared_ptr<EventLog> const events_;
   bool reloading_ = false;
   ConfigRecords records_;  // before all that read what it writes
   Evidence::Ledger ledger_;
   UnitService units_;
   Views views_;
   LinkEvents linkEvents_;
};

}  // namespace Service
