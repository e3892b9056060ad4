// The stage manager: takes units into maintenance and out again, one stage instance at a time.
//
// Owned by the maintenance service, driven by requests, by the completion marks of the plug-in, by hooks, by readiness
// and by deadlines. For each request it gives the unit a new generation and publishes the instance: its
// completion-status record, then per stage of the list a progress record with that stage true. A stage is over when it
// is marked ("ratemon"), when the unit is ready ("verify"), or when its hook has succeeded; then its progress record is
// removed whole and the next stage begins, in the same turn. That always happens at the end of a turn, after accounts
// were judged, and never inside the plug-in's write; where a stage is over at the very moment of its deadline, it is
// over.
//
//    active --enter--> entering: stages of maintEnter -> inMaintenance --exit--> leaving: stages of maintExit -> active
//                          '--exit, or a deadline with "rollback"------------------^             hook fails --> failed
//
// Everything that must survive the service is in the records: unit states, stage records, and the window of the stay.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "events/EventLog.h"
#include "evidence/Ledger.h"
#include "kel/ActivityLoop.h"
#include "links/LinkRecords.h"
#include "state/MaintenanceState.h"
#include "units/ConfigRecords.h"
#include "units/Hooks.h"

namespace Service {

class UnitService {
 public:
   enum class Outcome {
      started,
      already,  // the unit is there or on its way
      unknownUnit,
      refused,  // nothing was changed
   };
   struct Answer {
      Outcome outcome;
      uint32_t generation = 0;            // of the instance that was started, or of the present one; 0 when refused
      std::vector<std::string> why = {};  // of a refusal, one sentence each; of an enter, what was left out on request
   };
   struct Parts {
      Maintenance::MaintenanceState & state;
      ConfigRecords & config;
      Evidence::Ledger & ledger;
      LinkRecords const & links;
      Hooks & hooks;
      EventLog & events;                        // what an operator should hear of
      std::function<double()> wallClockOffset;  // s to add to Kel::now() for Unix time; empty: the clock is invented
      // Why the host would never take this link down; empty where it would. May be empty: there is no such link.
      std::function<std::string( Lumo::IntfId )> neverShut = {};
   };

   // Goes on with what the records say is under way; before the plug-in is loaded.
   explicit UnitService( Parts const & parts );
   ~UnitService();

   // `without`: names of interfaces of the unit that are left out of the proof; for a unit that is entering or in
   // maintenance they are added to what is left out already.
   Answer enter( std::string const & unit, std::vector<std::string> const & without, std::string const & requestedBy );
   Answer exit( std::string const & unit, std::string const & requestedBy );
   // Called with each request before it is carried out or refused. Replaces the one before.
   struct Request {
      bool enter;  // else it is an exit
      std::string unit;
      std::vector<std::string> without;
   };
   void onRequestIs( std::function<void( Request const & )> onRequest ) { onRequest_ = std::move( onRequest ); }

   // What enter() would answer, without doing anything.
   [[nodiscard]] Answer wouldEnter( std::string const & unit, std::vector<std::string> const & without ) const;

   // Why nobody could ever prove this interface quiet as things are; empty when it can be proven.
   [[nodiscard]] std::string neverProven( Lumo::IntfId intf ) const;

   // The interfaces that the unit would have shut down by their profiles if it entered now, without those named.
   [[nodiscard]] std::vector<Lumo::IntfId> shutBy( std::string const & unit,
                                                   std::vector<std::string> const & without ) const;
   // Why this one of them could not be; empty when it could.
   [[nodiscard]] std::string neverShut( Lumo::IntfId intf ) const;

   // The stage that runs now; empty when none does.
   [[nodiscard]] std::string stage( Kel::Name const & unit ) const;
   // The unit's present window, or its last one; null when it has none.
   [[nodiscard]] Kel::Ptr<Evidence::Window const> window( Kel::Name const & unit ) const;

   // Why this configuration cannot take the place of the present one while units are where they are; empty when it can.
   [[nodiscard]] std::vector<std::string> refusals( Config::Config const & config ) const;
   // The configuration's records have changed: units under way take over their interfaces.
   void handleConfig();

 private:
   class Impl;

   std::unique_ptr<Impl> const impl_;
   std::function<void( Request const & )> onRequest_;
};

}  // namespace Service
