// The monitor of one unit whose maintenance entry is being served.
//
// Owned by the root, made on maintenance enter, deleted on exit or when the unit's status record goes. It decides which
// interfaces of the unit are monitored, starts, shares and stops their drain monitors, and reports the enter stage
// complete once the unit's drained set is as large as its monitored set. Its teardown stops everything and reports the
// exit stage.
//
//    enter --> monitoring --last interface drained or removed--> drained (reported) --interface added--> monitoring
//                 any --exit, status record gone, new enter--> torn down (exit reported)
#pragma once

#include "IntfMonSm.h"
#include "UnitIntfInput.h"
#include "kel/Attributes.h"
#include "records/Group.h"

namespace MaintenanceMode {

class UnitMonSm final : public Kel::Entity {
   KEL_MACHINE( UnitMonSm, "MaintenanceMode::UnitMonSm", Kel::String8, unitName )
   KEL_ATTR( uint32_t, genId )  // of the unit's current maintenance instance; an exit brings its own
   KEL_REF( RateMonSm *, rateMonSm )
   KEL_REF( Kel::Ptr<UnitIntfInput>, monIntf )      // interfaces to monitor
   KEL_REF( Kel::Ptr<UnitIntfInput>, drainedIntf )  // interfaces found drained
   KEL_ATTR( bool, initialized )
   KEL_ENTITY_END

   ~UnitMonSm() override;

   // Once, by the factory, when the root already has this monitor: who ends the unit's maintenance from within finds it
   // there.
   void handleInitialized();
   void handleMonIntf( Lumo::IntfId intf );
   void handleDrainedIntf( Lumo::IntfId intf );

   void startIntfMon( Lumo::IntfId intf );
   void stopIntfMon( Lumo::IntfId intf );
   // Reports the enter stage when as many interfaces have drained as are monitored; zero equals zero.
   void checkDrainedIntfsAndReport();

   // Stops the monitor and lifts the shutdown that its profile brought about.
   static void unApplyCurrentProfile( Kel::String8 const & unitName, Lumo::IntfId intf,
                                      Kel::Ptr<IntfMonSm> const & intfMonSm, RateMonSm * rootSm );

   void prepareToDie() override;

   // This machine's part of the plug-in's dump (RateMonDump.cpp); `indent` blanks begin each line.
   void dump( int fd, int indent ) const;

 private:
   friend class RateMonSm;  // its factory
   class KelMonIntf;
   class KelDrainedIntf;

   UnitMonSm( Kel::String8 const & unitName, uint32_t genId, RateMonSm * rateMonSm,
              Kel::Ptr<UnitIntfInput> const & monIntf, Kel::Ptr<UnitIntfInput> const & drainedIntf );

   void startGroup( Group::GroupKey const & group );
   [[nodiscard]] bool canBeMonitored( Lumo::IntfId intf );
   // Null when whoever heard of the new monitor ended its monitoring at once.
   [[nodiscard]] Kel::Ptr<IntfMonSm> sharedOrNewIntfMon(
      Lumo::IntfId intf, Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile );
   [[nodiscard]] Kel::Ptr<IntfMonSm> newIntfMon( Lumo::IntfId intf,
                                                 Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile );
   // What a write may have changed for a start or stop that is under way
   [[nodiscard]] bool goesOn( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) const;
   [[nodiscard]] bool mine( Lumo::IntfId intf ) const;
   [[nodiscard]] bool isUnused( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) const;
   void startInterrupted( Lumo::IntfId intf );

   void applyRemainingProfile( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm );
   void deleteIntfMon( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm );

   void deleteInputs();

   std::unique_ptr<KelMonIntf> monIntfReactor_;
   std::unique_ptr<KelDrainedIntf> drainedIntfReactor_;
};

}  // namespace MaintenanceMode
