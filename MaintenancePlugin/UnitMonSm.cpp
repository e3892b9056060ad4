#include "UnitMonSm.h"

#include "RateMonSm.h"
#include "RateMonTrace.h"

KEL_TYPE( MaintenanceMode::UnitMonSm )

namespace MaintenanceMode {

using Interface::IntfOperStatus;
using Maintenance::MonIntfState;
using Maintenance::Unit::MaintenanceOp;

class UnitMonSm::KelMonIntf final : public UnitIntfInput::NotifieeConst {
 public:
   explicit KelMonIntf( UnitMonSm & owner ) : Reactor( owner ), owner_( owner ) { notifierIs( owner.monIntf() ); }
   void onIntf( Lumo::IntfId intf ) override { owner_.handleMonIntf( intf ); }

 private:
   UnitMonSm & owner_;
};

class UnitMonSm::KelDrainedIntf final : public UnitIntfInput::NotifieeConst {
 public:
   explicit KelDrainedIntf( UnitMonSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.drainedIntf() );
   }
   void onIntf( Lumo::IntfId intf ) override { owner_.handleDrainedIntf( intf ); }

 private:
   UnitMonSm & owner_;
};

UnitMonSm::UnitMonSm( Kel::String8 const & unit, uint32_t generation, RateMonSm * root,
                      Kel::Ptr<UnitIntfInput> const & monitored, Kel::Ptr<UnitIntfInput> const & drained )
   : unitName_( unit ), genId_( generation ), rateMonSm_( root ), monIntf_( monitored ), drainedIntf_( drained ) {
   hasNotificationActiveIs( false );
   monIntfReactor_ = std::make_unique<KelMonIntf>( *this );
   drainedIntfReactor_ = std::make_unique<KelDrainedIntf>( *this );
}

UnitMonSm::~UnitMonSm() = default;

void UnitMonSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   KEL_ASSERT( monIntf()->intfs() == 0 );
   KEL_ASSERT( drainedIntf()->intfs() == 0 );
   TRACE_AS( 1, "void MaintenanceMode::UnitMonSm::handleInitialized()", "unitMonSm for unit " << unitName() );
   RING( 3, "UnitMonSm::handleInitialized for unit {}", unitName() );
   if( auto const unit = rateMonSm()->in().unitStatusDir->status( unitName() ) ) {
      for( auto [group, present] : unit->groupIterator() ) {
         if( group.type == Group::GroupType::intf ) startGroup( group );
         if( !inService() ) return;  // somebody who saw an interface being started has ended the unit's maintenance
      }
   }
   TRACE( 1, "For unit " << unitName() << ", num monitored intfs " << monIntf()->intfs() << ", drainedIntfs "
                         << drainedIntf()->intfs() );
   RING( 3, "For unit {}, num monitored intfs {}, drainedIntfs {}", unitName(), monIntf()->intfs(),
         drainedIntf()->intfs() );
   // Before `initialized`, so that a unit without anything to monitor completes here and only once.
   checkDrainedIntfsAndReport();
   initializedIs( true );
}

void UnitMonSm::startGroup( Group::GroupKey const & group ) {
   TRACE_AS( 4, "handleInitialized", "processing group " << group );
   auto const status = rateMonSm()->in().intfGroupStatusDir->status( group.name );
   if( !status ) {
      TRACE_AS( 1, "handleInitialized",
                "Group status missing for group " << group << ", unit " << unitName() << ". Ignoring the group." );
      RING( 0, "Group status missing for group {}", group.text() );
      return;
   }
   for( auto [intf, present] : status->intfIteratorConst() ) {
      if( !inService() ) return;
      startIntfMon( intf );
   }
}

void UnitMonSm::startIntfMon( Lumo::IntfId intf ) {
   TRACE( 1, "unit " << unitName() << " intf " << intf );
   RING( 3, "startIntfMon: unit {}, intf {}", unitName(), intf );
   if( !isSupportedIntf( intf ) ) {
      TRACE( 1, "intf " << intf << " - is not not supported" );
      RING( 0, "startIntfMon: intf {} not supported", intf );
      rateMonSm()->counters()->numIntfMonIntfNotSupportedInc( 1 );
      return;
   }
   auto const intfProfile = rateMonSm()->getIntfProfile( intf );
   KEL_ASSERT( intfProfile );  // the configuration always has its own default; without one nothing could be decided
   if( !canBeMonitored( intf ) ) return;
   auto const intfMonSm = sharedOrNewIntfMon( intf, intfProfile );
   if( !goesOn( intf, intfMonSm ) ) return startInterrupted( intf );
   // Drained for another unit already, or under watch only. It counts as drained before it counts as monitored, so for
   // a moment a unit that waits for exactly one other interface looks drained, and reports: the mark says that the
   // numbers were equal once, and nothing more.
   if( intfMonSm->state() == MonIntfState::passiveMonitoring ) drainedIntf()->intfIs( intf, true );
   if( !goesOn( intf, intfMonSm ) ) return startInterrupted( intf );
   KEL_ASSERT( intfMonSm->monitoredIntf() );
   intfMonSm->monitoredIntf()->dependentUnitIs( unitName(), true );
   if( !goesOn( intf, intfMonSm ) ) return startInterrupted( intf );
   monIntf()->intfIs( intf, true );
}

// The unit is still served by this monitor, and the interface by that one.
bool UnitMonSm::goesOn( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) const {
   return inService() && intfMonSm && rateMonSm()->intfMon( intf ) == intfMonSm;
}

// Somebody who saw the interface being started ended its monitoring or the unit's maintenance. Whoever did that could
// only take back what was started by then.
void UnitMonSm::startInterrupted( Lumo::IntfId intf ) {
   if( inService() ) return startIntfMon( intf );  // the unit is still to be served: from the beginning
   if( !mine( intf ) ) return;
   drainedIntf()->intfDel( intf );
   auto const intfMonSm = rateMonSm()->intfMon( intf );
   if( !intfMonSm ) return;
   intfMonSm->monitoredIntf()->dependentUnitDel( unitName() );
   if( isUnused( intf, intfMonSm ) ) deleteIntfMon( intf, intfMonSm );
}

// Whether this monitor may still speak for the unit where the interface is concerned: after its end another may have
// taken over, because the unit was entered again, and the root may be gone with all that was monitored.
bool UnitMonSm::mine( Lumo::IntfId intf ) const {
   if( !rateMonSm()->serving() ) return false;
   auto const present = rateMonSm()->unitMon( unitName() );
   return !present || present.get() == this || !present->monIntf()->intf( intf );
}

// The interface is still monitored by that very monitor, and for nobody.
bool UnitMonSm::isUnused( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) const {
   return rateMonSm()->intfMon( intf ) == intfMonSm && intfMonSm->monitoredIntf()->dependentUnits() == 0;
}

bool UnitMonSm::canBeMonitored( Lumo::IntfId intf ) {
   auto const & in = rateMonSm()->in();
   auto const status = in.allIntfStatusDir->intfStatus( intf );
   if( !status ) {
      TRACE_AS( 1, "startIntfMon", "Could not find intfStatus for intf " << intf << ". Ignoring this interface" );
      RING( 0, "Could not find intfStatus for intf {}", intf );
      rateMonSm()->counters()->numIntfMonNoIntfStatusInc( 1 );
      return false;
   }
   if( rateMonSm()->isUp( intf ) ) return true;
   TRACE_AS( 1, "startIntfMon",
             "Intf " << intf << " operStatus is " << status->operStatus() << ", ignoring as it is not "
                     << IntfOperStatus::up );
   RING( 0, "intf operstatus is not up {}", intf );
   rateMonSm()->counters()->numIntfMonIntfOperNotUpInc( 1 );
   return false;
}

Kel::Ptr<IntfMonSm> UnitMonSm::sharedOrNewIntfMon( Lumo::IntfId intf,
                                                   Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile ) {
   auto const present = rateMonSm()->intfMon( intf );
   if( !present ) return newIntfMon( intf, profile );
   // One whose sampler is gone is being deleted, and we are called from within. It cannot be shared, so its end comes
   // first.
   if( rateMonSm()->monIntfDir()->monitoredIntf( intf ) != present->monitoredIntf() ) {
      unApplyCurrentProfile( unitName(), intf, present, rateMonSm() );
      rateMonSm()->intfMonDel( intf );
      return newIntfMon( intf, profile );
   }
   present->intfProfileIs( profile );
   return present;
}

Kel::Ptr<IntfMonSm> UnitMonSm::newIntfMon( Lumo::IntfId intf,
                                           Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile ) {
   auto * const rootSm = rateMonSm();
   auto initialState = MonIntfState::thresholdMonitoring;
   auto const unit = rootSm->in().unitStatusDir->status( unitName() );
   // A unit that is in maintenance already has been through its waiting: who joins it, or comes back after a restart,
   // is watched.
   if( unit && unit->state() == Maintenance::Unit::State::inMaintenance ) {
      initialState = MonIntfState::passiveMonitoring;
      rootSm->counters()->numIntfMonInitialStatePassiveInc( 1 );
   }
   KEL_ASSERT_TEXT( rootSm->monIntfDir(), "rootSm()->monIntfDir()" );
   // The sampler first: the drain monitor begins in the state that the sampler's record says.
   auto const monitoredIntf = rootSm->monIntfDir()->monitoredIntfIs( intf, rootSm, profile->profileName() );
   KEL_ASSERT( monitoredIntf );
   if( !monitoredIntf->inService() ) return nullptr;
   // Whoever heard of the sampler's first sample may have had the interface monitored already.
   if( auto const present = rootSm->intfMon( intf ) ) return present;
   auto const made = rootSm->intfMonIs( intf, rootSm->timerWheel(), profile, rootSm, monitoredIntf, initialState );
   TRACE_AS( 1, "startIntfMon",
             "created intf monitor for intf " << intf << ", initial state " << initialState << ", profile "
                                              << profile->profileName() );
   RING( 3, "created intf monitor for intf {}, initialState {}, profile {}", intf, enumName( initialState ),
         profile->profileName() );
   return made;
}

void UnitMonSm::stopIntfMon( Lumo::IntfId intf ) {
   TRACE( 1, "unit " << unitName() << " intf " << intf );
   RING( 3, "stopIntfMon: unit {}, intf {}", unitName(), intf );
   // Before anything else, and also for an interface that is not monitored: nobody would take the violation back later.
   if( auto const unit = rateMonSm()->in().unitStatusDir->status( unitName() ) ) {
      unit->intfsViolatingTrafficThresholdDel( intf );
   }
   if( !mine( intf ) ) return;
   auto const intfMonSm = rateMonSm()->intfMon( intf );
   if( !intfMonSm ) {
      TRACE( 1, "Could not find intfMonSm for intf " << intf );
      RING( 0, "could not find intfMonSm for intf {}", intf );
      return;
   }
   auto const monitoredIntf = intfMonSm->monitoredIntf();
   if( !monitoredIntf->dependentUnit( unitName() ) ) {
      TRACE( 1, "intf " << intf << " not part of unit " << unitName() );
      RING( 0, "intf not part of unit {} {}", intf, unitName() );
      return;
   }
   // From the drained ones before the unit lets go of it: in between the unit looks less drained than it is, never
   // more.
   drainedIntf()->intfDel( intf );
   if( !mine( intf ) ) return;
   monitoredIntf->dependentUnitDel( unitName() );
   // From here on it is the monitor of the units that remain, and each write may have been heard by one that stopped
   // it, too.
   if( rateMonSm()->intfMon( intf ) != intfMonSm ) return;
   applyRemainingProfile( intf, intfMonSm );
   if( isUnused( intf, intfMonSm ) ) deleteIntfMon( intf, intfMonSm );
}

// The precedence among the units that remain now decides. For them an interface that was shut down stays so, which is
// why its link's being down does not count here.
void UnitMonSm::applyRemainingProfile( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) {
   auto const intfProfile = rateMonSm()->getIntfProfile( intf );
   if( intfProfile && rateMonSm()->isUp( intf ) ) {
      intfMonSm->intfProfileIs( intfProfile );
      return;
   }
   TRACE_AS( 1, "stopIntfMon",
             "Un-applying the current profile because intfProfile was Null or "
             " intf was down. IntfId:"
                << intf << " unit:" << unitName() );
   unApplyCurrentProfile( unitName(), intf, intfMonSm, rateMonSm() );
}

void UnitMonSm::deleteIntfMon( Lumo::IntfId intf, Kel::Ptr<IntfMonSm> const & intfMonSm ) {
   auto * const rootSm = rateMonSm();
   TRACE_AS( 1, "stopIntfMon", "deleting intf monitor for intf " << intf );
   RING( 3, "deleting intf monitor for intf {}", intf );
   KEL_ASSERT_TEXT( rootSm->monIntfDir(), "rootSm()->monIntfDir()" );
   // The sampler first: its record goes while the drain monitor still has the profile under which it ran.
   rootSm->monIntfDir()->monitoredIntfDel( intf );
   if( rootSm->intfMon( intf ) != intfMonSm ) return;  // who heard of it had the interface monitored anew
   TRACE_AS(
      1, "stopIntfMon",
      "Un-applying the current profile before the intfMon is deleted. intfId:" << intf << " unitName:" << unitName() );
   unApplyCurrentProfile( unitName(), intf, intfMonSm, rootSm );
   if( rootSm->intfMon( intf ) != intfMonSm ) return;
   rootSm->intfMonDel( intf );
   // Whatever the profile says by now, nobody is left who would bring the link back later.
   rootSm->in().errDisableCauseStatus->intfStatusDel( intf );
}

void UnitMonSm::unApplyCurrentProfile( Kel::String8 const & unit, Lumo::IntfId intf,
                                       Kel::Ptr<IntfMonSm> const & intfMonSm, RateMonSm * rootSm ) {
   TRACE( 1, "unit:" << unit << "intfId:" << intf );
   KEL_ASSERT( intfMonSm );
   KEL_ASSERT( rootSm );
   KEL_ASSERT( intfMonSm->intfProfile() );
   auto const & causeStatus = rootSm->in().errDisableCauseStatus;
   KEL_ASSERT_TEXT( causeStatus, "rootSm->errDisableCauseStatus()" );
   // Stopped before the link comes back, so that its first packets are not sampled against the old threshold.
   intfMonSm->stateIs( MonIntfState::monitoringStopped );
   if( !intfMonSm->inService() ) return;  // whoever heard of the stop has done the rest
   if( !intfMonSm->intfProfile()->shutdown() || !causeStatus->intfStatus( intf ) ) return;
   TRACE( 1, "unit " << unit << ", intf " << intf << " - bringing it out of maint-down state" );
   RING( 3, "bring intf out of maint-down state {}, unit {}", intf, unit );
   causeStatus->intfStatusDel( intf );
}

void UnitMonSm::handleMonIntf( Lumo::IntfId intf ) {
   bool const * const present = monIntf()->intf( intf );
   bool const added = present && *present;
   // Until then what is added is this monitor's own doing. What is taken away never is: it stops at once, whenever that
   // is.
   if( !initialized() && added ) return;
   if( added ) {
      TRACE( 5, "unit " << unitName() << ", starting intf mon for intf " << intf );
      startIntfMon( intf );
      return;
   }
   TRACE( 5, "unit " << unitName() << ", stopping intf mon for intf " << intf );
   stopIntfMon( intf );
   if( initialized() && inService() ) checkDrainedIntfsAndReport();  // it may have been the last that was waited for
}

void UnitMonSm::handleDrainedIntf( Lumo::IntfId intf ) {
   if( !initialized() ) return;
   bool const * const present = drainedIntf()->intf( intf );
   bool const added = present && *present;
   TRACE( 5, "unit " << unitName() << ", drainedIntf( " << intf << " ) - " << ( added ? "added" : "deleted" )
                     << ", num drained intfs " << drainedIntf()->intfs() << ", num monitored intfs "
                     << monIntf()->intfs() );
   if( added ) checkDrainedIntfsAndReport();
}

void UnitMonSm::checkDrainedIntfsAndReport() {
   // By their numbers and not by their members. None equals none: a unit without anything to monitor is done.
   if( drainedIntf()->intfs() != monIntf()->intfs() ) return;
   TRACE( 4, "unit " << unitName() << " notifying completion." );
   rateMonSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::enter );
}

void UnitMonSm::prepareToDie() {
   monIntfReactor_->notifierIs( nullptr );
   drainedIntfReactor_->notifierIs( nullptr );
   TRACE( 1, "unit " << unitName() << ", genId " << genId() );
   RING( 3, "unit {}, genId {}", unitName(), genId() );
   // All that are monitored now, listed beforehand: one that the membership tracker takes out of the unit while another
   // is being stopped would be missed, since this monitor no longer hears of it.
   std::vector<Lumo::IntfId> monitored;
   for( auto [intf, present] : monIntf()->intfIterator() ) monitored.push_back( intf );
   for( Lumo::IntfId const intf : monitored ) {
      monIntf()->intfDel( intf );
      stopIntfMon( intf );
   }
   // Added meanwhile, and never started; drained, and not monitored yet when this end interrupted the start.
   monIntf()->intfDelAll();
   drainedIntf()->intfDelAll();
   rateMonSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::exit );
   deleteInputs();
}

// A unit that was entered again from within this teardown has entries of its own in place of ours.
void UnitMonSm::deleteInputs() {
   auto const & monitored = rateMonSm()->unitMonIntfInput();
   auto const & drained = rateMonSm()->unitDrainedIntf();
   if( monitored->unitIntfInput( unitName() ) != monIntf() ) return;
   KEL_ASSERT_TEXT( monIntf()->intfs() == 0,
                    "rootSm()->unitMonIntfInput()->unitIntfInput( unitName() )->intfs() == 0" );
   KEL_ASSERT_TEXT( drainedIntf()->intfs() == 0,
                    "rootSm()->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0" );
   monitored->unitIntfInputDel( unitName() );
   if( drained->unitIntfInput( unitName() ) == drainedIntf() ) drained->unitIntfInputDel( unitName() );
}

}  // namespace MaintenanceMode
