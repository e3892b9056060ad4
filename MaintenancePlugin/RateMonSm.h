// The root of the plug-in: owns every other machine and collection, and is the one place where the plug-in's state is
// brought into line with the state database when the agent (re)starts.
//
// Built once by the loader, when all mounts are complete, with every directory that any machine needs. Start-up marks
// the published interface records stale, re-enters the units that are entering, in or leaving maintenance (which
// refreshes the records of what is still monitored), and deletes what stayed stale. After that it is driven by the
// stage helpers: a stage request becomes a maintenance enter or exit of a unit, and a unit monitor's report becomes a
// completion mark.
//
//    RateMonSm -+- MaintStageHelperSm x 2        stages "maintEnter", "maintExit"
//               +- UnitMonSm per unit served     which interfaces, are all drained
//               +- IntfMonSm per interface       timer, threshold, drained, shutdown
//               +- MonitoredIntf per interface   counters, rates
//               +- IntfStatusSm                  which interfaces join and leave units
//               +- IntfRateAggregatorSm          the units' aggregate rates
//               +- timer wheel, debug counters, sets of monitored and drained interfaces per unit
#pragma once

#include <memory>

#include "IntfMonSm.h"
#include "IntfRateAggregatorSm.h"
#include "IntfStatusSm.h"
#include "MaintStageHelperSm.h"
#include "MonitoredIntf.h"
#include "RateMonContext.h"
#include "UnitIntfInput.h"
#include "UnitMonSm.h"
#include "kel/Attributes.h"

namespace MaintenanceMode {

class RateMonSm final : public Kel::Entity, public RateMonContext {
   KEL_MACHINE( RateMonSm, "MaintenanceMode::RateMonSm", Kel::Name, smName )
   KEL_REF( Kel::Ptr<Brim::TimerWheel>, timerWheel )
   KEL_REF_BY( counters )
   KEL_REF( Kel::Ptr<UnitIntfInputDir>, unitMonIntfInput )  // per unit served, the interfaces to monitor
   KEL_REF( Kel::Ptr<UnitIntfInputDir>, unitDrainedIntf )   // per unit served, the interfaces found drained
   KEL_REF( Kel::Ptr<MonitoredIntfDir>, monIntfDir )        // the samplers
   KEL_REF( Kel::Ptr<MaintStageHelperSm>, maintEnterStageHelper )
   KEL_REF( Kel::Ptr<MaintStageHelperSm>, maintExitStageHelper )
   KEL_REF( Kel::Ptr<IntfStatusSm>, intfStatusSm )
   KEL_REF( Kel::Ptr<IntfRateAggregatorSm>, intfRateAggSm )
   KEL_CHILDREN( UnitMonSm, Kel::String8, unitMon, onUnitMon )
   KEL_CHILDREN( IntfMonSm, Lumo::IntfId, intfMon, onIntfMon )
   KEL_ATTR( bool, initialized )
   KEL_ENTITY_END

   ~RateMonSm() override;

   // False once everything that was monitored has been let go. A machine that is at work in a stop or start asks this
   // after each write, because the write may have been heard by whoever takes the plug-in down.
   [[nodiscard]] bool serving() const { return serving_; }

   // The unit's monitor, made when absent; one that exists takes the new generation id and must have the same other
   // arguments.
   Kel::Ptr<UnitMonSm> unitMonIs( Kel::String8 const & unitName, uint32_t genId, RateMonSm * rootSm,
                                  Kel::Ptr<UnitIntfInput> const & monIntf,
                                  Kel::Ptr<UnitIntfInput> const & drainedIntf );
   // The interface's drain monitor, made when absent; one that exists takes the new profile and must have the same
   // other arguments.
   Kel::Ptr<IntfMonSm> intfMonIs( Lumo::IntfId intf, Kel::Ptr<Brim::TimerWheel> const & timerWheel,
                                  Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile, RateMonSm * rootSm,
                                  Kel::Ptr<MonitoredIntf> const & monitoredIntf,
                                  Maintenance::MonIntfState initialState );

   // Maintenance enter, exit and stage completion (RateMonSmStages.cpp)
   void doStageForInstance( Kel::String8 const & stageClass, Kel::Name const & instanceName,
                            Kel::String8 const & stage );
   void handleUnitMaintenanceEnter( Kel::String8 const & unitName, uint32_t genId );
   void handleUnitMaintenanceExit( Kel::String8 const & unitName, uint32_t genId );
   void notifyStageCompletion( Kel::String8 const & unitName, uint32_t genId, Maintenance::Unit::MaintenanceOp op );
   void handleUnitStatus( Kel::String8 const & unitName );

   // Up as this plug-in sees it: operationally up, or down only because it was shut down for maintenance.
   [[nodiscard]] bool isUp( Lumo::IntfId intf ) const;

   // An interface joins or leaves the units that are being served
   void startIntfMonInUnits( Lumo::IntfId intf );
   void stopIntfMonInUnits( Lumo::IntfId intf );
   void delFromViolatingIntfsCollection( Lumo::IntfId intf );

   // Profiles (RateMonSmProfiles.cpp). A result may be null or empty: nothing is selected or configured.
   [[nodiscard]] Kel::String8 getIntfProfileName( Lumo::IntfId intf ) const;
   [[nodiscard]] bool usingDefaultProfile( Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> getIntfProfile( Lumo::IntfId intf ) const;
   void handleIntfProfileConfig( Kel::String8 const & profileName );
   void handleDefaultIntfProfile();

   void handleInitialized();
   void prepareToDie() override;
   // Lets go of everything, in order, once: afterwards nothing of this plug-in writes a record. It may be called from
   // inside any write, also one that a machine of this root is making.
   void takeDown();

   // This machine's part of the plug-in's dump (RateMonDump.cpp); `indent` blanks begin each line.
   void dump( int fd, int indent ) const;

 private:
   friend Kel::Ptr<RateMonSm> newRateMonSm( RateMonSmInputs const & inputs );

   class KelUnitStatusDir;
   class KelIntfProfileConfigDir;
   class KelDefaultIntfProfile;

   explicit RateMonSm( RateMonSmInputs const & inputs );

   // Start-up, step by step
   void newStageHelpers();
   void markStatusStale();
   void reenterUnits();
   void reenterUnit( Maintenance::Unit::Status const & unit );
   [[nodiscard]] bool stageActive( Kel::Ptr<Stage::ProgressDir const> const & progressDir,
                                   Kel::Name const & instanceName, Maintenance::Unit::Status const & unit ) const;
   // Whether the progress record lists the rate monitor's stage as active.
   [[nodiscard]] static bool listsOurStage( Kel::Ptr<Stage::Progress const> const & progress );
   void sweepStaleStatus();
   void catchUp();
   void letGoOfTheRest();

   void addProfile( Kel::String8 const & profileName );
   void deleteProfile( Kel::String8 const & profileName );

   bool takenDown_ = false;
   bool serving_ = true;
   std::unique_ptr<KelUnitStatusDir> unitStatusReactor_;
   std::unique_ptr<KelIntfProfileConfigDir> intfProfileConfigReactor_;
   std::unique_ptr<KelDefaultIntfProfile> defaultIntfProfileReactor_;
};

// Makes the root and switches its notifications on.
[[nodiscard]] Kel::Ptr<RateMonSm> newRateMonSm( RateMonSmInputs const & inputs );

}  // namespace MaintenanceMode
