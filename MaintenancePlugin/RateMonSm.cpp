#include "RateMonSm.h"

#include "RateMonTrace.h"
#include "kel/ActivityLoop.h"
#include "records/Names.h"

KEL_TYPE( MaintenanceMode::RateMonSm )

namespace MaintenanceMode {

class RateMonSm::KelUnitStatusDir final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   explicit KelUnitStatusDir( RateMonSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.in().unitStatusDir );
   }
   void onStatus( Kel::String8 unitName ) override { owner_.handleUnitStatus( unitName ); }

 private:
   RateMonSm & owner_;
};

class RateMonSm::KelIntfProfileConfigDir final : public IntfMaintenanceProfile::ConfigDir::NotifieeConst {
 public:
   explicit KelIntfProfileConfigDir( RateMonSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.in().intfProfileConfigDir );
   }
   void onConfig( Kel::String8 profileName ) override { owner_.handleIntfProfileConfig( profileName ); }

 private:
   RateMonSm & owner_;
};

class RateMonSm::KelDefaultIntfProfile final : public Maintenance::Profile::DefaultProfile::NotifieeConst {
 public:
   explicit KelDefaultIntfProfile( RateMonSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.in().defaultIntfProfile );
   }
   void onProfileName() override { owner_.handleDefaultIntfProfile(); }

 private:
   RateMonSm & owner_;
};

Kel::Ptr<RateMonSm> newRateMonSm( RateMonSmInputs const & inputs ) {
   auto const root = Kel::validPtr( new RateMonSm( inputs ) );
   root->hasNotificationActiveIs( true );
   return root;
}

RateMonSm::RateMonSm( RateMonSmInputs const & inputs )
   : smName_( "rateMonSm" ), in_( inputs ), lagMembers_( inputs.lagConfigDir ) {
   hasNotificationActiveIs( false );
   if( in_.unitStatusDir ) unitStatusReactor_ = std::make_unique<KelUnitStatusDir>( *this );
   if( in_.intfProfileConfigDir ) intfProfileConfigReactor_ = std::make_unique<KelIntfProfileConfigDir>( *this );
   if( in_.defaultIntfProfile ) defaultIntfProfileReactor_ = std::make_unique<KelDefaultIntfProfile>( *this );
   handleInitialized();
}

namespace {

template<class Machine>
void takeDown( Kel::Ptr<Machine> & machine ) {
   if( auto const dying = std::exchange( machine, nullptr ) ) dying->prepareToDie();
}

}  // namespace

// Unit monitors go before drain monitors, so that a unit monitor's own teardown still finds the monitors it releases.
RateMonSm::~RateMonSm() {
   prepareToDie();
   kelDoZombieReactors( true );
   unitStatusReactor_.reset();
   intfProfileConfigReactor_.reset();
   defaultIntfProfileReactor_.reset();
   takeDown( maintEnterStageHelper_ );
   takeDown( maintExitStageHelper_ );
   unitMonDelAll();
   intfMonDelAll();
   takeDown( intfStatusSm_ );
   timerWheelDel();
   unitMonIntfInputDel();
   unitDrainedIntfDel();
   countersDel();
   monIntfDirDel();
   takeDown( intfRateAggSm_ );
}

void RateMonSm::prepareToDie() { TRACE_AS( 4, "void MaintenanceMode::RateMonSm::prepareToDie()", "called" ); }

void RateMonSm::handleInitialized() {
   TRACE_AS( 5, "void MaintenanceMode::RateMonSm::handleInitialized()", "called" );
   KEL_ASSERT( !initialized() );
   auto const & clock = Kel::activityManager().config().clock();
   timerWheelIs( Brim::TimerWheel::TimerWheelIs( nullptr, clock, 1000, 1800, true, 1024 ) );
   countersIs( new RateMonSmDebugCounters( "counters" ) );
   unitMonIntfInputIs( new UnitIntfInputDir( "unitMonIntfInput" ) );
   unitDrainedIntfIs( new UnitIntfInputDir( "unitDrainedIntf" ) );
   monIntfDirIs( new MonitoredIntfDir( "monIntfDir" ) );
   newStageHelpers();
   markStatusStale();
   in_.monIntfStatusDir->monIntfEnterMaintDelAll();
   in_.monIntfStatusDir->monIntfUnderMaintDelAll();
   in_.monIntfStatusDir->monIntfSpikeUnderMaintDelAll();
   reenterUnits();
   sweepStaleStatus();
   intfStatusSmIs( IntfStatusSm::IntfStatusSmIs( clock, in_.allIntfStatusDir, in_.intfToGroupDir, in_.groupToUnitDir,
                                                 unitMonIntfInput(), in_.intfGroupStatusDir, this ) );
   intfRateAggSmIs(
      IntfRateAggregatorSm::IntfRateAggregatorSmIs( monIntfDir(), in_.monIntfStatusDir, in_.unitStatusDir ) );
   TRACE( 4, "RateMonSm - initialized" );
   RING( 3, "RateMonSm - initialized" );
   initializedIs( true );
}

void RateMonSm::newStageHelpers() {
   maintEnterStageHelperIs( new MaintStageHelperSm( Maintenance::enterStageClass, in_.maintEnterProgressDir,
                                                    in_.maintEnterCompletionStatus, in_.maintEnterAgentConfig,
                                                    in_.maintEnterAgentStatus, this ) );
   maintEnterStageHelper()->hasNotificationActiveIs( true );
   maintExitStageHelperIs( new MaintStageHelperSm( Maintenance::exitStageClass, in_.maintExitProgressDir,
                                                   in_.maintExitCompletionStatus, in_.maintExitAgentConfig,
                                                   in_.maintExitAgentStatus, this ) );
   maintExitStageHelper()->hasNotificationActiveIs( true );
}

void RateMonSm::markStatusStale() {
   std::size_t marked = 0;
   for( auto [intf, status] : in_.monIntfStatusDir->monIntfStatusIterator() ) {
      status->staleIs( true );
      ++marked;
   }
   TRACE_AS( 4, "handleInitialized", "marked " << marked << " entries as stale in MonIntfStatusDir." );
   RING( 3, "restart: num monIntfStatusDir entries marked as stale {}", marked );
}

void RateMonSm::reenterUnits() {
   if( !in_.unitStatusDir ) return;
   for( auto [unitName, unit] : in_.unitStatusDir->statusIterator() ) {
      TRACE_AS( 4, "handleInitialized", "Processing unit=" << unitName << " state=" << unit->state() );
      reenterUnit( *unit );
   }
}

void RateMonSm::reenterUnit( Maintenance::Unit::Status const & unit ) {
   using Maintenance::Unit::State;
   Kel::Name const enterInstance = unit.maintEnterInstanceName();
   Kel::Name const exitInstance = unit.maintExitInstanceName();
   bool reenter = false;
   switch( unit.state() ) {
      case State::inMaintenance:
         reenter = Maintenance::Unit::StageMgrInstKey( enterInstance ).genId() == unit.genId();
         break;
      case State::entering: reenter = stageActive( in_.maintEnterProgressDir, enterInstance, unit ); break;
      case State::leaving:
         if( !stageActive( in_.maintExitProgressDir, exitInstance, unit ) ) return;
         TRACE_AS( 4, "handleInitialized", "Unit state =" << unit.state() << ", completing the stage for this unit" );
         maintExitStageHelper()->doStageCompleteForInstance( rateMonStage(), exitInstance );
         return;
      case State::unknown:
      case State::active:
      case State::failed: return;
   }
   if( !reenter ) return;
   TRACE_AS( 4, "handleInitialized", "Unit state =" << unit.state() << ", putting this unit in maintenance " );
   doStageForInstance( Maintenance::enterStageClass, enterInstance, rateMonStage() );
}

bool RateMonSm::stageActive( Kel::Ptr<Stage::ProgressDir const> const & progressDir, Kel::Name const & instanceName,
                             Maintenance::Unit::Status const & unit ) const {
   auto const progress = progressDir ? progressDir->progress( instanceName ) : nullptr;
   if( !progress ) {
      TRACE_AS( 4, "handleInitialized", "InstanceStatus not found for unit " << unit.unitName() );
      return false;
   }
   if( Maintenance::Unit::StageMgrInstKey( instanceName ).genId() != unit.genId() ) return false;
   bool const * const active = progress->stage( rateMonStage() );
   return active && *active;
}

void RateMonSm::sweepStaleStatus() {
   std::size_t deleted = 0;
   for( auto [intf, status] : in_.monIntfStatusDir->monIntfStatusIterator() ) {
      if( !status->stale() ) continue;
      TRACE_AS( 4, "handleInitialized", "deleted stale MonIntfStatusDir entry for intf " << intf );
      RING( 3, "restart: deleted stale monIntfStatus for intf {}", intf );
      in_.monIntfStatusDir->monIntfStatusDel( intf );
      in_.errDisableCauseStatus->intfStatusDel( intf );
      delFromViolatingIntfsCollection( intf );
      ++deleted;
   }
   TRACE_AS( 4, "handleInitialized", "deleted " << deleted << " stale entries from MonIntfStatusDir." );
   RING( 3, "restart: deleted stale entries from monIntfStatusDir {}", deleted );
}

namespace {

// A factory met an existing machine that was made with another argument.
template<class T>
void requireSame( char const * attribute, T const & wanted, T const & current ) {
   if( wanted == current ) return;
   std::ostringstream text;
   text << "Reinstantiating the pointer interface where constructor parameter attribute " << attribute
        << " has a different value of " << wanted << " than the current value of " << current << " not allowed";
   throw Kel::RangeError( text.str() );
}

void const * address( auto const & ptr ) { return ptr.get(); }

}  // namespace

Kel::Ptr<UnitMonSm> RateMonSm::unitMonIs( Kel::String8 const & unitName, uint32_t genId, RateMonSm * rootSm,
                                          Kel::Ptr<UnitIntfInput> const & monIntf,
                                          Kel::Ptr<UnitIntfInput> const & drainedIntf ) {
   if( auto const present = unitMon( unitName ) ) {
      requireSame( "_rootSm", rootSm, present->rateMonSm() );
      requireSame( "_monIntf", address( monIntf ), address( present->monIntf() ) );
      requireSame( "_drainedIntf", address( drainedIntf ), address( present->drainedIntf() ) );
      present->genIdIs( genId );
      return present;
   }
   auto const made = unitMonIs( Kel::validPtr( new UnitMonSm( unitName, genId, rootSm, monIntf, drainedIntf ) ) );
   made->hasNotificationActiveIs( true );
   return made;
}

Kel::Ptr<IntfMonSm> RateMonSm::intfMonIs( Lumo::IntfId intf, Kel::Ptr<Brim::TimerWheel> const & wheel,
                                          Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile,
                                          RateMonSm * rootSm, Kel::Ptr<MonitoredIntf> const & monitoredIntf,
                                          Maintenance::MonIntfState initialState ) {
   if( auto const present = intfMon( intf ) ) {
      requireSame( "_clock", address( wheel ), address( present->clock() ) );
      requireSame( "_rootSm", rootSm, present->rootSm() );
      requireSame( "_monitoredIntf", address( monitoredIntf ), address( present->monitoredIntf() ) );
      requireSame( "_initialState", initialState, present->initialState() );
      present->intfProfileIs( profile );
      return present;
   }
   auto const made =
      intfMonIs( Kel::validPtr( new IntfMonSm( intf, wheel, profile, rootSm, monitoredIntf, initialState ) ) );
   made->hasNotificationActiveIs( true );
   return made;
}

bool RateMonSm::isUp( Lumo::IntfId intf ) const {
   auto const status = in_.allIntfStatusDir ? in_.allIntfStatusDir->intfStatus( intf ) : nullptr;
   if( !status ) return false;
   return status->operStatus() == Interface::IntfOperStatus::up || in_.errDisableCauseStatus->intfStatus( intf );
}

void RateMonSm::startIntfMonInUnits( Lumo::IntfId intf ) {
   counters()->numStartIntfMonInUnitsInc( 1 );
   TRACE( 1, "intf " << intf );
   auto const member = in_.intfToGroupDir->intfToGroup( intf );
   if( !member ) return;
   for( auto [group, present] : member->groupIteratorConst() ) {
      auto const units = in_.groupToUnitDir->groupToUnit( group );
      if( !units ) continue;
      for( auto [unitName, inUnit] : units->unitNameIteratorConst() ) {
         auto const monIntf = inUnit ? unitMonIntfInput()->unitIntfInput( unitName ) : nullptr;
         if( !monIntf ) continue;
         TRACE( 1, "Starting intf mon for intf " << intf << " in unit " << unitName << ", group " << group );
         RING( 3, "Starting intf mon for intf {} in unit {}, group {}", intf, unitName, group.text() );
         monIntf->intfIs( intf, true );
      }
   }
}

void RateMonSm::stopIntfMonInUnits( Lumo::IntfId intf ) {
   TRACE( 1, "intf " << intf );
   if( !intfMon( intf ) ) return;
   counters()->numStopIntfMonInUnitsInc( 1 );
   for( auto [unitName, monIntf] : unitMonIntfInput()->unitIntfInputIterator() ) monIntf->intfDel( intf );
}

void RateMonSm::delFromViolatingIntfsCollection( Lumo::IntfId intf ) {
   if( !in_.unitStatusDir ) return;
   for( auto [unitName, unit] : in_.unitStatusDir->statusIterator() ) unit->intfsViolatingTrafficThresholdDel( intf );
}

}  // namespace MaintenanceMode
