// The drain monitor of one interface: decides when traffic has stayed under the profile's threshold long enough.
//
// Owned by the root, one per monitored interface, shared by all units that contain it. Driven by a timer on the root's
// wheel: each time it has the sampler take a sample, counts it against the threshold, and decides. It shuts the
// interface down if the profile says so and tells the dependent units; it never starts or stops itself.
//
//    created --+--> thresholdMonitoring (1) --drained or shut down--> passiveMonitoring (2)
//              |      every sampleInterval                              every 2 x sampleInterval, spikes;
//              +------------------------------------------------------>   not at all while shut down
//    either --profile un-applied by a unit monitor--> monitoringStopped (3)
//
// A record that a restart left behind decides the state in which a new monitor begins.
#pragma once

#include "MonitoredIntf.h"
#include "brim/TimerWheel.h"
#include "kel/Attributes.h"
#include "kel/InBlocks.h"
#include "records/MonIntfStatus.h"
#include "records/Profile.h"

namespace MaintenanceMode {

class RateMonSm;

class IntfMonSm final : public Kel::Entity, public Kel::InBlocks<IntfMonSm> {
   KEL_MACHINE( IntfMonSm, "MaintenanceMode::IntfMonSm", Lumo::IntfId, intfId )
   KEL_REF_BY( clock )        // the wheel that carries its timer
   KEL_REF_BY( intfProfile )  // the profile in force
   KEL_ATTR( Maintenance::MonIntfState, initialState )
   KEL_ATTR_HANDLED( Maintenance::MonIntfState, state, handleState )
   KEL_ATTR( bool, initialized )
   KEL_REF( RateMonSm *, rootSm )
   KEL_REF( Kel::Ptr<MonitoredIntf>, monitoredIntf )
   KEL_ATTR( Kel::String8, oldProfileName )  // name of the profile applied last
   KEL_ENTITY_END

   // Replacing it applies it at once; null keeps the one there is.
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> const & intfProfile() const {
      return intfProfile_.notifier();
   }
   void intfProfileIs( Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile );

   [[nodiscard]] Kel::Ptr<Brim::TimerWheel> const & clock() const { return clock_.notifier(); }

   // Once, by the factory, when the root already has this monitor: who ends things from within finds it there.
   void handleInitialized();
   void handleState();
   void handleTimeout();
   void handleProfile();
   void handleProfileUpdate();

   void prepareToDie() override;

   // This machine's part of the plug-in's dump (RateMonDump.cpp); `indent` blanks begin each line.
   void dump( int fd, int indent ) const;

 private:
   friend class RateMonSm;  // its factory

   class KelClock final : public Kel::OwnedBy<IntfMonSm, Brim::TimerWheel::NotifieeConst> {
    public:
      using OwnedBy::OwnedBy;
      void onTime() override { owner().handleTimeout(); }
   };
   class KelIntfProfile final : public Kel::OwnedBy<IntfMonSm, IntfMaintenanceProfile::Config::NotifieeConst> {
    public:
      using OwnedBy::OwnedBy;
      void onShutdown() override { owner().handleProfileUpdate(); }
   };

   IntfMonSm( Lumo::IntfId intfId, Kel::Ptr<Brim::TimerWheel> const & timerWheel,
              Kel::Ptr<IntfMaintenanceProfile::Config const> const & intfProfile, RateMonSm * rootSm,
              Kel::Ptr<MonitoredIntf> const & monitoredIntf, Maintenance::MonIntfState initialState );

   // Sampling
   void updateCounters();
   [[nodiscard]] bool isTrafficBelowThreshold() const;
   [[nodiscard]] bool hasTrafficDrained() const;
   [[nodiscard]] uint32_t drainedSeconds() const;
   void traceDrainDecision( bool drained ) const;

   void publishUnderMaint();
   // The two timed states, one timeout each
   void handleThresholdTimeout();
   void handlePassiveTimeout();

   // Timer
   void setMonitoringTimer();
   void setThresholdMonitoringTimeout();
   void setPassiveMonitoringTimeout();
   void stopTimer();

   // Shutting down, and telling the units
   [[nodiscard]] bool doMaintenanceShutdown( bool drained );
   void bringOutOfMaintDown();
   void notifyDependentUnits();
   void updateDependentUnitStatus( bool belowThreshold );
   void processProfileUpdate();

   [[nodiscard]] Maintenance::MonIntfStatus & record() const { return *monitoredIntf()->monIntfStatus(); }
   [[nodiscard]] bool isShutDown() const;
   // Still in service and in that state: asked after every write whose handlers may have changed either.
   [[nodiscard]] bool still( Maintenance::MonIntfState s ) const { return inService() && state() == s; }

   KelClock clock_;
   KelIntfProfile intfProfile_;
};

}  // namespace MaintenanceMode
