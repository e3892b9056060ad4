// The aggregate rate of every unit: the sum of the current rates of the interfaces that it depends on.
//
// Owned by the root. It samples nothing; it hears of each new rate in the published records and of each unit that an
// interface begins or ceases to count for, and replaces the old contribution by the new one. Its invariant, between any
// two turns: a unit's aggTrafficRate is the sum of the curRates, each rounded to whole bit/s, of the interfaces whose
// MonitoredIntf lists the unit. The arithmetic is exact; anything that would run over or under is a broken invariant
// and stops the agent.
//
// Start-up sets every unit to 0 and adds up what is monitored: nothing is carried over a restart.
#pragma once

#include <memory>

#include "MonitoredIntf.h"
#include "UnitStatusCache.h"
#include "kel/ReactorMap.h"
#include "records/MonIntfStatus.h"
#include "records/Unit.h"

namespace MaintenanceMode {

class IntfRateAggregatorSm final : public Kel::Entity {
   KEL_MACHINE( IntfRateAggregatorSm, "MaintenanceMode::IntfRateAggregatorSm", Kel::Name, smName )
   KEL_REF( Kel::Ptr<MonitoredIntfDir>, monIntfDir )
   KEL_REF( Kel::Ptr<Maintenance::MonIntfStatusDir const>, monIntfStatusDir )
   KEL_REF( Kel::Ptr<Maintenance::Unit::StatusDir>, unitStatusDir )
   KEL_ATTR( bool, initialized )
   KEL_ENTITY_END

   // Makes the aggregator and switches its notifications on.
   static Kel::Ptr<IntfRateAggregatorSm> IntfRateAggregatorSmIs(
      Kel::Ptr<MonitoredIntfDir> const & monIntfDir,
      Kel::Ptr<Maintenance::MonIntfStatusDir const> const & monIntfStatusDir,
      Kel::Ptr<Maintenance::Unit::StatusDir> const & unitStatusDir );
   ~IntfRateAggregatorSm() override;

   // What `curAgg` becomes when an interface's old rates leave it and its new ones join. Changes nothing itself. An
   // underflow or overflow in between is fatal, also where the end result would fit.
   [[nodiscard]] static Maintenance::Unit::TrafficRates calculateNewAggregate(
      Kel::String8 const & unitName, Lumo::IntfId intfId, Maintenance::Unit::TrafficRates const & curAgg,
      Interface::IntfRates const & ratesToSub, Interface::IntfRates const & ratesToAdd );

   // The reactors, one per record; a null record is refused with Kel::RangeError.
   void monitoredIntfIs( Kel::Ptr<MonitoredIntf> const & record );
   void monitoredIntfDel( Lumo::IntfId intfId );
   void monIntfStatusIs( Kel::Ptr<Maintenance::MonIntfStatus const> const & record );
   void monIntfStatusDel( Lumo::IntfId intfId );

   void handleInitialized();
   void prepareToDie() override;

 private:
   class KelMonIntfDir;
   class KelMonitoredIntf;
   class KelMonIntfStatusDir;
   class KelMonIntfStatus;
   class KelUnitStatusDir;

   IntfRateAggregatorSm( Kel::Ptr<MonitoredIntfDir> const & monIntfDir,
                         Kel::Ptr<Maintenance::MonIntfStatusDir const> const & monIntfStatusDir,
                         Kel::Ptr<Maintenance::Unit::StatusDir> const & unitStatusDir );

   void addUp();
   void handleUnitStatus( Kel::String8 const & unitName );
   // What the unit's aggregate holds of the interface, or would if it counted it.
   [[nodiscard]] Interface::IntfRates countedFor( UnitStatusCache::Status const & unit,
                                                  MonitoredIntf const & sampler ) const;

   // Moves when an interface joins or leaves a unit, and when a unit's record or an interface's sampler comes or goes:
   // whatever was looked up before is looked up anew.
   uint32_t unitsEpoch_ = 1;
   Kel::ReactorMap<KelMonitoredIntf, Lumo::IntfId, IntfRateAggregatorSm> monitoredIntf_;
   Kel::ReactorMap<KelMonIntfStatus, Lumo::IntfId, IntfRateAggregatorSm> monIntfStatus_;
   std::unique_ptr<KelMonIntfDir> monIntfDirReactor_;
   std::unique_ptr<KelMonIntfStatusDir> monIntfStatusDirReactor_;
   std::unique_ptr<KelUnitStatusDir> unitStatusDirReactor_;
};

}  // namespace MaintenanceMode
