#include "IntfMonSm.h"

#include <limits>

#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "kel/ActivityLoop.h"
#include "kel/Whole.h"

KEL_TYPE( MaintenanceMode::IntfMonSm )

namespace MaintenanceMode {

using Maintenance::MonIntfState;

namespace {
constexpr double never = std::numeric_limits<double>::infinity();
}

IntfMonSm::IntfMonSm( Lumo::IntfId id, Kel::Ptr<Brim::TimerWheel> const & wheel,
                      Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile, RateMonSm * root,
                      Kel::Ptr<MonitoredIntf> const & sampler, MonIntfState initial )
   : intfId_( id ),
     initialState_( initial ),
     rootSm_( root ),
     monitoredIntf_( sampler ),
     clock_( *this, wheel ),
     intfProfile_( *this ) {
   hasNotificationActiveIs( false );
   intfProfile_.notifierIs( profile );
}

void IntfMonSm::prepareToDie() {
   stopTimer();
   intfProfile_.notifierIs( nullptr );
}

void IntfMonSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   TRACE_AS(
      5, "void MaintenanceMode::IntfMonSm::handleInitialized()",
      "intf " << intfId() << ", initial state " << initialState() << ", profile " << intfProfile()->profileName() );
   oldProfileNameIs( intfProfile()->profileName() );
   // A restarted agent goes on where the record says that it was.
   MonIntfState const recorded = record().state();
   MonIntfState const effective = recorded == MonIntfState::notMonitoring ? initialState() : recorded;
   TRACE_AS( 5, "void MaintenanceMode::IntfMonSm::handleInitialized()",
             "intf " << intfId() << ", effectiveState " << effective );
   bool const shut = doMaintenanceShutdown( effective == MonIntfState::passiveMonitoring );
   if( !inService() ) return;  // the shutdown, or its end, was heard by somebody who ended the monitoring
   stateIs( shut ? MonIntfState::passiveMonitoring : effective );
   initializedIs( true );
}

void IntfMonSm::intfProfileIs( Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile ) {
   if( !profile ) {
      TRACE( 5, "intf " << intfId() << ", no profile to apply, keeping " << intfProfile()->profileName() );
      return;
   }
   if( profile == intfProfile() ) return;
   intfProfile_.notifierIs( profile );
   // A replaced profile is first taken as one whose shutdown flag changed, then as a new one: twice the same for the
   // timer, but the message to the operator comes after the link has followed.
   handleProfileUpdate();
   if( !inService() || intfProfile() != profile ) return;  // ended, or replaced once more and told of already
   handleProfile();
}

void IntfMonSm::handleState() {
   TRACE_AS( 5, "void MaintenanceMode::IntfMonSm::handleState()", "intf " << intfId() << ", state " << state() );
   RING( 3, "IntfMonSm::handleState intf {}, state {}", intfId(), enumName( state() ) );
   // Only a change is published: the record of a monitor that a restart made anew keeps its time.
   if( record().state() != state() ) {
      record().stateIs( state() );
      // Without a notification of its own, unlike the state: who wants to know when hears of the state and reads this
      // in the same turn.
      record().stateTimeIs( Kel::now() );
   }
   if( !inService() ) return;
   setMonitoringTimer();
   auto const & statusDir = rootSm()->in().monIntfStatusDir;
   switch( state() ) {
      case MonIntfState::thresholdMonitoring: statusDir->monIntfEnterMaintIs( intfId(), true ); return;
      case MonIntfState::passiveMonitoring: return publishUnderMaint();
      case MonIntfState::notMonitoring:
      case MonIntfState::monitoringStopped: return;
   }
}

// From the set of those that enter into the set of those that are in, then into that of spikes. A flag that is set for
// an interface whose monitoring has just ended would stay for ever.
void IntfMonSm::publishUnderMaint() {
   auto const & statusDir = rootSm()->in().monIntfStatusDir;
   statusDir->monIntfEnterMaintDel( intfId() );
   if( !still( MonIntfState::passiveMonitoring ) ) return;
   statusDir->monIntfUnderMaintIs( intfId(), true );
   if( !still( MonIntfState::passiveMonitoring ) ) return;
   if( record().spikeUnderMaint() ) statusDir->monIntfSpikeUnderMaintIs( intfId(), true );
   if( !still( MonIntfState::passiveMonitoring ) ) return;
   // A profile that took its shutdown back while it was being carried out was heard in a state that does nothing about
   // it.
   if( isShutDown() && !intfProfile()->shutdown() ) bringOutOfMaintDown();
}

void IntfMonSm::handleTimeout() {
   TRACE( 5, "intf " << intfId() );
   MonIntfState const sampledIn = state();
   monitoredIntf()->updateTrafficRates();
   if( !still( sampledIn ) ) return;  // the rates ended it, or the profile was un-applied: this sample decides nothing
   updateCounters();
   if( !still( sampledIn ) ) return;
   switch( state() ) {
      case MonIntfState::thresholdMonitoring: return handleThresholdTimeout();
      case MonIntfState::passiveMonitoring: return handlePassiveTimeout();
      case MonIntfState::notMonitoring:
      case MonIntfState::monitoringStopped: break;
   }
   KEL_ASSERT_TEXT( false, "0" );
}

void IntfMonSm::handleThresholdTimeout() {
   bool const drained = hasTrafficDrained();
   bool const shut = doMaintenanceShutdown( drained );
   if( !still( MonIntfState::thresholdMonitoring ) ) return;
   if( !drained && !shut ) {
      setThresholdMonitoringTimeout();
      return;
   }
   // The units first: a unit that completes on this interface does so while the record still says that it is entering.
   notifyDependentUnits();
   if( !still( MonIntfState::thresholdMonitoring ) ) return;  // whoever heard it was done with this monitor at once
   stateIs( MonIntfState::passiveMonitoring );
}

void IntfMonSm::handlePassiveTimeout() {
   // Decided once: what the writes below cause does not change what this sample saw.
   bool const below = isTrafficBelowThreshold();
   if( !below ) {
      record().spikeUnderMaintIs( true );
      if( !still( MonIntfState::passiveMonitoring ) ) return;
      rootSm()->in().monIntfStatusDir->monIntfSpikeUnderMaintIs( intfId(), true );
      if( !still( MonIntfState::passiveMonitoring ) ) return;
   }
   updateDependentUnitStatus( below );
   if( still( MonIntfState::passiveMonitoring ) ) setPassiveMonitoringTimeout();
}

void IntfMonSm::updateCounters() {
   auto & status = record();
   bool const below = isTrafficBelowThreshold();
   bool const entering = state() == MonIntfState::thresholdMonitoring;
   // Before anything is decided, so that the decision counts this sample, too.
   status.totalSamplesInc( 1 );
   if( entering && below ) {
      status.numConsecutiveDrainedSamplesInc( 1 );
      status.numSamplesBelowThresholdPreMaintInc( 1 );
   } else if( entering ) {
      status.numConsecutiveDrainedSamplesIs( 0 );
      status.numSamplesAboveThresholdPreMaintInc( 1 );
   } else if( below ) {
      status.numSamplesBelowThresholdPostMaintInc( 1 );
   } else {
      status.numSamplesAboveThresholdPostMaintInc( 1 );
   }
}

// A rate equal to the threshold is not below it, so a threshold of 0 is never met.
bool IntfMonSm::isTrafficBelowThreshold() const {
   double const threshold = intfProfile()->thresholdBitsRate();
   auto const & rates = record().curRates();
   return threshold > rates.inBitsRate && threshold > rates.outBitsRate;
}

// Only the low 32 bits count.
uint32_t IntfMonSm::drainedSeconds() const {
   double const seconds = record().quietSeconds( *intfProfile() );
   return static_cast<uint32_t>( Kel::truncated( seconds ) );
}

bool IntfMonSm::hasTrafficDrained() const {
   // By samples and not by the clock: a sample that comes late stands for its interval all the same.
   bool const drained = isTrafficBelowThreshold() && drainedSeconds() >= intfProfile()->rateMonLoadInterval();
   traceDrainDecision( drained );
   return drained;
}

void IntfMonSm::traceDrainDecision( bool drained ) const {
   auto const & status = record();
   auto const & rates = status.curRates();
   char const * const function = "hasTrafficDrained";
   TRACE_AS( 9, function, "intf " << intfId() << ", traffic drained - " << ( drained ? "true" : "false" ) );
   TRACE_AS( 9, function,
             "    threshold " << intfProfile()->thresholdBitsRate() << ", cur inBitsRates " << rates.inBitsRate
                              << ", cur outBitsRates " << rates.outBitsRate );
   TRACE_AS( 9, function,
             "    numConsecutiveDrainedSamples "
                << status.numConsecutiveDrainedSamples() << ", totalSamples " << status.totalSamples() << " ( "
                << status.numSamplesAboveThresholdPreMaint() << " / " << status.numSamplesBelowThresholdPreMaint()
                << ")" );
   TRACE_AS( 9, function,
             "    startTime " << status.startTime() << ", drainInterval " << drainedSeconds() << "("
                              << Kel::now() - status.startTime() << "), rateMonLoadInterval "
                              << intfProfile()->rateMonLoadInterval() );
   RING( 8, "hasTrafficDrained: intf {}, drained {}, cur in {}, cur out {}", intfId(), drained, rates.inBitsRate,
         rates.outBitsRate );
}

void IntfMonSm::setMonitoringTimer() {
   TRACE( 5, "intf " << intfId() << ", state " << state() );
   switch( state() ) {
      case MonIntfState::notMonitoring: return;
      case MonIntfState::thresholdMonitoring: return setThresholdMonitoringTimeout();
      case MonIntfState::passiveMonitoring: return setPassiveMonitoringTimeout();
      case MonIntfState::monitoringStopped: return stopTimer();
   }
   KEL_ASSERT_TEXT( false, "0" );
}

void IntfMonSm::setThresholdMonitoringTimeout() { clock_.timeMinIs( Kel::now() + intfProfile()->sampleInterval() ); }

// A link that is shut down carries nothing that could come back, so it is not sampled at all.
void IntfMonSm::setPassiveMonitoringTimeout() {
   clock_.timeMinIs( isShutDown() ? never : Kel::now() + 2 * intfProfile()->sampleInterval() );
}

void IntfMonSm::stopTimer() { clock_.timeMinIs( never ); }

}  // namespace MaintenanceMode
