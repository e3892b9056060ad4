// The traffic sampler of one interface.
//
// One exists for every interface that some unit monitors; they live in the root's MonitoredIntfDir. Each sample reads
// the octet counters, turns the change since the last sample into bit rates and publishes them in the interface's
// Maintenance::MonIntfStatus, where the drain monitor and the unit aggregates read them. It is driven by the drain
// monitor (IntfMonSm); it never decides anything.
//
// Ethernet: its own counters. Port-channel: the sum over its Ethernet members. VLAN interface: the busiest member, per
// direction. The first sample of an interface only primes its counters.
#pragma once

#include "kel/Attributes.h"
#include "kel/InBlocks.h"
#include "quill/IntfCounters.h"
#include "records/Interface.h"
#include "records/MonIntfStatus.h"

namespace MaintenanceMode {

class RateMonContext;

// True for the kinds that can be sampled: Ethernet, port-channel and VLAN interfaces, never their sub-interfaces.
[[nodiscard]] bool isSupportedIntf( Lumo::IntfId intfId );

// What the last sample of one Ethernet interface saw: the monitored one itself, or a member it is reached through.
class IntfCounterInfo final : public Kel::Entity, public Kel::InBlocks<IntfCounterInfo> {
   KEL_ENTITY( IntfCounterInfo, "MaintenanceMode::IntfCounterInfo", Lumo::IntfId, intfId )
   KEL_ATTR( Interface::IntfStatistics, prevStats )
   KEL_ATTR( Interface::IntfRates, rates )  // bit/s
   KEL_ATTR( double, lastUpdateTime )       // s, 0 before the first sample
   KEL_ENTITY_END

   using Counters = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;

   [[nodiscard]] bool hasCounters( Counters const & counters ) { return counter_.isIn( counters, intfId() ); }
   // Its present counters; without values where it has none.
   [[nodiscard]] Interface::IntfStatistics statistics( Counters const & counters ) {
      return counter_.statistics( counters, intfId() );
   }

 private:
   Interface::IntfCounterMasquerade::KeptCounter counter_;
};

class alignas( 64 ) MonitoredIntf final : public Kel::Entity, public Kel::InBlocks<MonitoredIntf> {
   KEL_MACHINE( MonitoredIntf, "MaintenanceMode::MonitoredIntf", Lumo::IntfId, intfId )
   // What each sample needs: it fills the first line of the processor's caches.
   KEL_ATTR( bool, initialized )  // the first sample has been taken
   KEL_REF( RateMonContext *, rootSm )
   KEL_ATTR_HANDLED( Kel::String8, profileName, handleProfileName )  // of the profile in force
   KEL_REF( Kel::Ptr<Maintenance::MonIntfStatus>, monIntfStatus )

 private:
   IntfCounterInfo * ownInfo_ = nullptr;  // this interface's among the member counters, once it is there

 public:
   // The units that wait for this interface's drain result; always true.
   KEL_MAP( bool, Kel::String8, dependentUnit, onDependentUnit )
   // By Ethernet interface, made on its first sample, kept until the sampler goes.
   KEL_CHILDREN( IntfCounterInfo, Lumo::IntfId, memberTrafficCounters, onMemberTrafficCounters )
   KEL_ENTITY_END

   void handleInitialized();
   void handleProfileName();
   // Takes one sample and publishes it.
   void updateTrafficRates();
   void prepareToDie() override;

   // This machine's part of the plug-in's dump (RateMonDump.cpp); `indent` blanks begin each line.
   void dump( int fd, int indent ) const;

   // One sample of an interface of the kind in the name, which is asserted; publishes when it is this sampler's own.
   Interface::IntfRates getEthPhyIntfTrafficCounters( Lumo::IntfId argIntfId );
   Interface::IntfRates getLagIntfTrafficCounters( Lumo::IntfId argIntfId );
   Interface::IntfRates getVlanIntfTrafficCounters( Lumo::IntfId argIntfId );

   // Makes `rates` the record's current rates and what was current its previous ones.
   void setCurRates( Kel::Ptr<Maintenance::MonIntfStatus> const & monIntfStatus, Interface::IntfRates const & rates );

 private:
   friend class MonitoredIntfDir;  // its factory

   MonitoredIntf( Lumo::IntfId intfId, RateMonContext * rootSm, Kel::String8 const & profileName );

   // What the last sample saw, null before the first.
   [[nodiscard]] IntfCounterInfo * counterInfo( Lumo::IntfId sampled );
   void publishIfOwn( Lumo::IntfId sampled, Interface::IntfRates const & rates );
};

class MonitoredIntfDir final : public Kel::Entity {
   KEL_ENTITY( MonitoredIntfDir, "MaintenanceMode::MonitoredIntfDir", Kel::Name, dirName )
   KEL_CHILDREN( MonitoredIntf, Lumo::IntfId, monitoredIntf, onMonitoredIntf )
   KEL_ENTITY_END

   // The interface's sampler, made and primed when absent. One that exists must have the same root.
   Kel::Ptr<MonitoredIntf> monitoredIntfIs( Lumo::IntfId intfId, RateMonContext * rootSm,
                                            Kel::String8 const & profileName );
};

}  // namespace MaintenanceMode
