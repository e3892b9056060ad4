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
   handleInitialized();
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
      }
   }
   TRACE( 1, "For unit " << unitName() << ", num monitored intfs " << monIntf()->intfs() << ", drainedIntfs "
                         << drainedIntf()->intfs() );
   RING( 3, "For unit {}, num monitored intfs {}, drainedIntfs {}", unitName(), monIntf()->intfs(),
         drainedIntf()->intfs() );
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
   for( auto [intf, present] : status->intfIteratorConst() ) startIntfMon( intf );
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
   KEL_ASSERT( intfProfile );
   if( !canBeMonitored( intf ) ) return;
   auto intfMonSm = rateMonSm()->intfMon( intf );
   if( intfMonSm ) {
      intfMonSm->intfProfileIs( intfProfile );
   } else {
      intfMonSm = newIntfMon( intf, intfProfile );
   }
   if( intfMonSm->state() == MonIntfState::passiveMonitoring ) drainedIntf()->intfIs( intf, true );
   KEL_ASSERT( intfMonSm->monitoredIntf() );
   intfMonSm->monitoredIntf()->dependentUnitIs( unitName(), true );
   monIntf()->intfIs( intf, true );
}

bool UnitMonSm::canBeMonitored( Lumo::IntfId intf ) {
   auto const & in = rateMonSm()->in();
   auto const status = in.allIntfStatusDir ? in.allIntfStatusDir->intfStatus( intf ) : nullptr;
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

Kel::Ptr<IntfMonSm> UnitMonSm::newIntfMon( Lumo::IntfId intf,
                                           Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile ) {
   auto * const rootSm = rateMonSm();
   auto initialState = MonIntfState::thresholdMonitoring;
   auto const unit = rootSm->in().unitStatusDir->status( unitName() );
   if( unit && unit->state() == Maintenance::Unit::State::inMaintenance ) {
      initialState = MonIntfState::passiveMonitoring;
      rootSm->counters()->numIntfMonInitialStatePassiveInc( 1 );
   }
   KEL_ASSERT_TEXT( rootSm->monIntfDir(), "rootSm()->monIntfDir()" );
   auto const monitoredIntf = rootSm->monIntfDir()->monitoredIntfIs( intf, rootSm, profile->profileName() );
   KEL_ASSERT( monitoredIntf );
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
   if( auto const unit = rateMonSm()->in().unitStatusDir->status( unitName() ) ) {
      unit->intfsViolatingTrafficThresholdDel( intf );
   }
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
   drainedIntf()->intfDel( intf );
   monitoredIntf->dependentUnitDel( unitName() );
   applyRemainingProfile( intf, intfMonSm );
   if( monitoredIntf->dependentUnits() == 0 ) deleteIntfMon( intf, intfMonSm );
}

// The precedence among the units that remain now decides. For them an interface that was shut down stays so, which is why
// its link's being down does not count here.
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
   rootSm->monIntfDir()->monitoredIntfDel( intf );
   TRACE_AS(
      1, "stopIntfMon",
      "Un-applying the current profile before the intfMon is deleted. intfId:" << intf << " unitName:" << unitName() );
   unApplyCurrentProfile( unitName(), intf, intfMonSm, rootSm );
   rootSm->intfMonDel( intf );
}

void UnitMonSm::unApplyCurrentProfile( Kel::String8 const & unit, Lumo::IntfId intf,
                                       Kel::Ptr<IntfMonSm> const & intfMonSm, RateMonSm * rootSm ) {
   TRACE( 1, "unit:" << unit << "intfId:" << intf );
   KEL_ASSERT( intfMonSm );
   KEL_ASSERT( rootSm );
   KEL_ASSERT( intfMonSm->intfProfile() );
   auto const & causeStatus = rootSm->in().errDisableCauseStatus;
   KEL_ASSERT_TEXT( causeStatus, "rootSm->errDisableCauseStatus()" );
   intfMonSm->stateIs( MonIntfState::monitoringStopped );
   if( !intfMonSm->intfProfile()->shutdown() || !causeStatus->intfStatus( intf ) ) return;
   TRACE( 1, "unit " << unit << ", intf " << intf << " - bringing it out of maint-down state" );
   RING( 3, "bring intf out of maint-down state {}, unit {}", intf, unit );
   causeStatus->intfStatusDel( intf );
}

void UnitMonSm::handleMonIntf( Lumo::IntfId intf ) {
   if( !initialized() ) return;
   if( monIntf()->intf( intf ) ) {
      TRACE( 5, "unit " << unitName() << ", starting intf mon for intf " << intf );
      startIntfMon( intf );
      return;
   }
   TRACE( 5, "unit " << unitName() << ", stopping intf mon for intf " << intf );
   stopIntfMon( intf );
   checkDrainedIntfsAndReport();
}

void UnitMonSm::handleDrainedIntf( Lumo::IntfId intf ) {
   if( !initialized() ) return;
   bool const added = drainedIntf()->intf( intf ) != nullptr;
   TRACE( 5, "unit " << unitName() << ", drainedIntf( " << intf << " ) - " << ( added ? "added" : "deleted" )
                     << ", num drained intfs " << drainedIntf()->intfs() << ", num monitored intfs "
                     << monIntf()->intfs() );
   if( added ) checkDrainedIntfsAndReport();
}

void UnitMonSm::checkDrainedIntfsAndReport() {
   if( drainedIntf()->intfs() != monIntf()->intfs() ) return;
   TRACE( 4, "unit " << unitName() << " notifying completion." );
   rateMonSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::enter );
}

void UnitMonSm::prepareToDie() {
   kelDoZombieReactors( true );
   monIntfReactor_->notifierIs( nullptr );
   drainedIntfReactor_->notifierIs( nullptr );
   TRACE( 1, "unit " << unitName() << ", genId " << genId() );
   RING( 3, "unit {}, genId {}", unitName(), genId() );
   for( auto [intf, present] : monIntf()->intfIterator() ) {
      monIntf()->intfDel( intf );
      stopIntfMon( intf );
   }
   rateMonSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::exit );
   auto * const rootSm = rateMonSm();
   KEL_ASSERT_TEXT( rootSm->unitMonIntfInput()->unitIntfInput( unitName() )->intfs() == 0,
                    "rootSm()->unitMonIntfInput()->unitIntfInput( unitName() )->intfs() == 0" );
   KEL_ASSERT_TEXT( rootSm->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0,
                    "rootSm()->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0" );
   rootSm->unitMonIntfInput()->unitIntfInputDel( unitName() );
   rootSm->unitDrainedIntf()->unitIntfInputDel( unitName() );
}

}  // namespace MaintenanceMode
