// The membership tracker: which interfaces belong to which units, kept up to date while units are in maintenance.
//
// Owned by the root. It watches the status of all interfaces, the groups of each interface and the units of each group.
// What ends a membership is acted on at once, inside the notification: the interface leaves the set that its unit
// monitors. Everything else only queues the interface. The backlog is worked off in slices on the activity loop, in
// interface order, each slice at most about backlogQuantum seconds long; for every interface it is decided anew whether
// it is to be monitored.
//
//    removal  ------------------------------------------> unitMonIntfInput[unit] loses the interface
//    anything else --> backlog --slice--> processIntf --> root: startIntfMonInUnits or stopIntfMonInUnits
//
// "In maintenance" means one thing here: the unit has an entry in unitMonIntfInput.
#pragma once

#include <memory>

#include "UnitIntfInput.h"
#include "brim/CodefBase.h"
#include "kel/RbTreeMap.h"
#include "kel/ReactorMap.h"
#include "records/Group.h"
#include "records/Interface.h"

namespace MaintenanceMode {

class RateMonSm;

// True when some group of the interface is in the unit. Both directories exist.
[[nodiscard]] bool isIntfMemberOfUnit( Lumo::IntfId intfId, Kel::String8 const & unitName,
                                       Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
                                       Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir );

class IntfStatusSm final : public Brim::CodefBase {
   KEL_MACHINE( IntfStatusSm, "MaintenanceMode::IntfStatusSm", Kel::Name, smName )
   KEL_REF_BY( clock )
   KEL_REF( Kel::Ptr<Interface::AllIntfStatusDir const>, allIntfStatusDir )
   KEL_REF( Kel::Ptr<IntfMaintenance::IntfToGroupDir const>, intfToGroupDir )
   KEL_REF( Kel::Ptr<Maintenance::GroupToUnitDir const>, groupToUnitDir )
   KEL_REF( Kel::Ptr<UnitIntfInputDir>, unitMonIntfInput )
   KEL_REF( Kel::Ptr<IntfGroup::StatusDir const>, intfGroupStatusDir )
   KEL_REF( RateMonSm *, rootSm )
   KEL_ATTR( Lumo::IntfId, bookmark )  // where the next slice begins; empty: at the smallest
   KEL_ATTR( bool, initialized )
   // Work statistics of the base
   KEL_ATTR_BY( double, backlogQuantum )
   KEL_ATTR_BY( uint64_t, updatesSeen )
   KEL_ATTR_BY( uint64_t, updatesProcessed )
   KEL_ATTR_BY( uint64_t, updatesCoalesced )
   KEL_ATTR_BY( double, timeUsed )
   KEL_ATTR_BY( uint64_t, dispatchCount )
   KEL_ATTR_BY( uint64_t, yieldBeforeFinishingCount )
   KEL_ATTR_BY( bool, warm )
   KEL_ENTITY_END

   // Makes the tracker and switches its notifications on; every interface that has a status is queued.
   static Kel::Ptr<IntfStatusSm> IntfStatusSmIs( Kel::Ptr<Kel::Clock> const & clock,
                                                 Kel::Ptr<Interface::AllIntfStatusDir const> const & allIntfStatusDir,
                                                 Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
                                                 Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir,
                                                 Kel::Ptr<UnitIntfInputDir> const & unitMonIntfInput,
                                                 Kel::Ptr<IntfGroup::StatusDir const> const & intfGroupStatusDir,
                                                 RateMonSm * rootSm );
   ~IntfStatusSm() override;

   // The reactors, one per record; a null record is refused with Kel::RangeError. A record in the place of another is
   // watched from then on. Deleting the reactor of an interface queues it.
   void intfStatusIs( Kel::Ptr<Interface::IntfStatus const> const & record );
   void intfStatusDel( Lumo::IntfId intfId );
   void intfToGroupIs( Kel::Ptr<IntfMaintenance::IntfToGroup const> const & record );
   void intfToGroupDel( Lumo::IntfId intfId );
   void groupToUnitIs( Kel::Ptr<Maintenance::GroupToUnit const> const & record );
   void groupToUnitDel( Group::GroupKey const & groupKey );

   [[nodiscard]] Kel::Ptr<Kel::Clock> const & clock() const { return codefClock(); }

   // Queues the interface for the next slice; once, however often it is asked for.
   void addToBacklog( Lumo::IntfId intfId );
   [[nodiscard]] uint64_t backlogSize() const override { return backlog_.size(); }

   void handleInitialized();
   void prepareToDie() override;

   // This machine's part of the plug-in's dump (RateMonDump.cpp); `indent` blanks begin each line.
   void dump( int fd, int indent ) const;

 private:
   class KelAllIntfStatusDir;
   class KelIntfStatus;
   class KelIntfToGroupDir;
   class KelIntfToGroup;
   class KelGroupToUnitDir;
   class KelGroupToUnit;

   IntfStatusSm( Kel::Ptr<Kel::Clock> const & clock,
                 Kel::Ptr<Interface::AllIntfStatusDir const> const & allIntfStatusDir,
                 Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
                 Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir,
                 Kel::Ptr<UnitIntfInputDir> const & unitMonIntfInput,
                 Kel::Ptr<IntfGroup::StatusDir const> const & intfGroupStatusDir, RateMonSm * rootSm );

   // Takes the interface from the unit's monitored ones unless another path still makes it a member. `handler` begins
   // the trace lines, `ofUnit` is how its text names the unit.
   void removeUnlessMember( char const * handler, char const * ofUnit, Lumo::IntfId intfId,
                            Kel::String8 const & unitName, UnitIntfInput & monitored ) const;

   uint64_t processBacklog( Kel::Seconds & startTime ) override;
   uint64_t workBacklog( Kel::Seconds deadline );
   void processIntf( Lumo::IntfId intfId );
   void processProfileChange( Lumo::IntfId intfId );
   [[nodiscard]] bool isInMaintGroup( Lumo::IntfId intfId ) const;

   Kel::RbTreeMap<bool, Lumo::IntfId> backlog_;
   Kel::ReactorMap<KelIntfStatus, Lumo::IntfId, IntfStatusSm> intfStatus_;
   Kel::ReactorMap<KelIntfToGroup, Lumo::IntfId, IntfStatusSm> intfToGroup_;
   Kel::ReactorMap<KelGroupToUnit, Group::GroupKey, IntfStatusSm> groupToUnit_;
   std::unique_ptr<KelAllIntfStatusDir> allIntfStatusDirReactor_;
   std::unique_ptr<KelIntfToGroupDir> intfToGroupDirReactor_;
   std::unique_ptr<KelGroupToUnitDir> groupToUnitDirReactor_;
};

}  // namespace MaintenanceMode
