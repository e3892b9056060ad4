// The stage manager: takes units into maintenance and out again, one stage instance at a time.
//
// Owned by the agent, driven by the API and by the completion marks of the plug-in. For each request it gives the unit
// a new generation, publishes the instance (completion-status record first, then the progress record with the stage
// "ratemon" active) and waits for the mark; what a mark causes is done on a later turn of the loop, never inside the
// plug-in's write. A finished instance is removed as a whole: progress record, then completion-status record.
//
//    active --enter--> entering --mark--> inMaintenance --exit--> leaving --mark--> active
//                          '----------------exit---------------------^
#pragma once

#include <memory>
#include <string>

#include "kel/ActivityLoop.h"
#include "state/MaintenanceState.h"
#include "units/ConfigRecords.h"

namespace Service {

class UnitService {
 public:
   enum class Outcome {
      started,
      already,  // the unit is there or on its way
      unknownUnit,
      busy,  // the opposite request is still under way
   };
   struct Answer {
      Outcome outcome;
      uint32_t generation = 0;  // of the instance that was started, or of the present one
   };

   UnitService( Maintenance::MaintenanceState & state, ConfigRecords & config );
   ~UnitService();

   Answer enter( std::string const & unit );
   Answer exit( std::string const & unit );

 private:
   class KelComplete;
   class Advance;

   void startInstance( Maintenance::Unit::Status & unit, Maintenance::StageState & stage,
                       Maintenance::Unit::State state );
   void removeInstance( Maintenance::StageState & stage, Kel::Name const & instance );
   // Goes on with every unit whose present instance has been marked complete.
   void advance();

   Maintenance::MaintenanceState & state_;
   ConfigRecords & config_;
   std::unique_ptr<Advance> advance_;  // before the reactors, which ask it for a turn
   std::unique_ptr<KelComplete> enterComplete_;
   std::unique_ptr<KelComplete> exitComplete_;
};

}  // namespace Service
