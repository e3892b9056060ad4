// What a drain monitor does about its decisions: shut the interface down, bring it back, tell the units, apply
// profiles.
#include "IntfMonSm.h"
#include "RateMonPlugin.h"
#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "kel/ActivityLoop.h"

namespace MaintenanceMode {

using Maintenance::MonIntfState;

bool IntfMonSm::isShutDown() const { return rootSm()->in().errDisableCauseStatus->intfStatus( intfId() ) != nullptr; }

bool IntfMonSm::doMaintenanceShutdown( bool drained ) {
   if( !intfProfile()->shutdown() ) {
      // Down by a profile that was in force before this one.
      if( isShutDown() ) bringOutOfMaintDown();
      return false;
   }
   double const maxDelay = intfProfile()->shutdownMaxDelay();
   // From when the monitoring began, which a restart leaves as it is: the delay is what the operator was promised.
   double const elapsed = Kel::now() - record().startTime();
   if( drained ) {
      TRACE( 4, "intfId " << intfId() << " shutting down because traffic has drained" );
   } else if( maxDelay == 0 || elapsed >= maxDelay ) {
      TRACE( 4, "intfId " << intfId() << " shutting down because max-delay of " << maxDelay << " seconds has elapsed ("
                          << elapsed << ")" );
   } else {
      return false;
   }
   // Also where the entry is there: a shutdown that is made again, as after a restart, begins anew.
   rootSm()->in().errDisableCauseStatus->intfStatusIs( intfId(), Kel::now() );
   RING( 3, "maint-down for intf {}", intfId() );
   return true;
}

void IntfMonSm::bringOutOfMaintDown() {
   TRACE_AS( 4, "doMaintenanceShutdown", "intf " << intfId() << " bringing it out of maint-down state" );
   RING( 3, "bring intf {} out maint-down state", intfId() );
   rootSm()->in().errDisableCauseStatus->intfStatusDel( intfId() );
}

void IntfMonSm::notifyDependentUnits() {
   KEL_ASSERT( monitoredIntf() );
   std::size_t notified = 0;
   for( auto [unitName, present] : monitoredIntf()->dependentUnitIterator() ) {
      if( !inService() ) break;  // the unit told last ended the monitoring: nobody depends on it any more
      TRACE( 5, "intfMonSm( " << intfId() << ") notifying unit " << unitName );
      if( auto const drained = rootSm()->unitDrainedIntf()->unitIntfInput( unitName ) ) {
         drained->intfIs( intfId(), true );
      }
      ++notified;
   }
   TRACE( 5, "intfMonSm(" << intfId() << ") notified " << notified );
}

void IntfMonSm::updateDependentUnitStatus( bool belowThreshold ) {
   KEL_ASSERT( monitoredIntf() );
   for( auto [unitName, present] : monitoredIntf()->dependentUnitIterator() ) {
      if( !inService() ) return;  // a violation set now would have nobody left to take it back
      auto const unit = rootSm()->in().unitStatusDir->status( unitName );
      // On the way in or out traffic is expected; it violates nothing.
      if( !unit || unit->state() != Maintenance::Unit::State::inMaintenance ) continue;
      if( belowThreshold ) {
         unit->intfsViolatingTrafficThresholdDel( intfId() );
         continue;
      }
      unit->intfsViolatingTrafficThresholdIs( intfId(), true );
      // Counts samples, not spikes, so it moves also where the interface was in the set already.
      unit->totalIntfTrafficViolationsInc( 1 );
   }
}

void IntfMonSm::handleProfile() {
   Kel::String8 const name = intfProfile()->profileName();
   TRACE_AS( 5, "void MaintenanceMode::IntfMonSm::handleProfile()",
             "for intf " << intfId() << ", profile changed to " << name << " from " << oldProfileName() );
   // Told with the name that was in force until now, so that one goes before that name is replaced.
   rootSm()->counters()->numIntfMonProfileChangeInc( 1 );
   mmodeIntfProfileChange.log( intfId().name(), name, oldProfileName() );
   oldProfileNameIs( name );
   monitoredIntf()->profileNameIs( name );
   if( inService() ) processProfileUpdate();
}

void IntfMonSm::handleProfileUpdate() {
   TRACE_AS( 5, "void MaintenanceMode::IntfMonSm::handleProfileUpdate()",
             "called, intf " << intfId() << ", profile " << intfProfile()->profileName() );
   RING( 4, "handleProfileUpdate: intf {}, profile {}", intfId(), intfProfile()->profileName() );
   processProfileUpdate();
}

void IntfMonSm::processProfileUpdate() {
   // Before it has drained an interface follows a new shutdown flag at its next sample, afterwards at once.
   if( state() == MonIntfState::passiveMonitoring ) static_cast<void>( doMaintenanceShutdown( true ) );
   // From now on, in every state: the new sample interval counts from this moment.
   if( inService() ) setMonitoringTimer();
}

}  // namespace MaintenanceMode
