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
   root->handleInitialized();
   root->hasNotificationActiveIs( true );
   root->catchUp();
   return root;
}

RateMonSm::RateMonSm( RateMonSmInputs const & inputs ) : RateMonContext( inputs ), smName_( "rateMonSm" ) {
   hasNotificationActiveIs( false );
   unitStatusReactor_ = std::make_unique<KelUnitStatusDir>( *this );
   intfProfileConfigReactor_ = std::make_unique<KelIntfProfileConfigDir>( *this );
   defaultIntfProfileReactor_ = std::make_unique<KelDefaultIntfProfile>( *this );
}

namespace {

template<class Machine>
void endMachine( Kel::Ptr<Machine> & machine ) {
   auto const dying = std::exchange( machine, nullptr );
   if( !dying ) return;
   dying->kelDoZombieReactors( true );
   dying->prepareToDie();
}

}  // namespace

RateMonSm::~RateMonSm() { takeDown(); }

void RateMonSm::takeDown() {
   if( std::exchange( takenDown_, true ) ) return;
   prepareToDie();
   kelDoZombieReactors( true );
   unitStatusReactor_->notifierIs( nullptr );
   intfProfileConfigReactor_->notifierIs( nullptr );
   defaultIntfProfileReactor_->notifierIs( nullptr );
   // The helpers before the units: what a unit reports on its way out now is no answer to any request, so it is not
   // written.
   endMachine( maintEnterStageHelper_ );
   endMachine( maintExitStageHelper_ );
   // Unit monitors before drain monitors: the teardown of a unit still has to find the monitors that it releases.
   unitMonDelAll();
   serving_ = false;
   letGoOfTheRest();
   intfMonDelAll();
   endMachine( intfStatusSm_ );
   // Last, because the aggregates follow all that the others let go. The wheel, the counters and the collections stay
   // until the root is freed: a machine whose write brought this about still works with them on its way out.
   endMachine( intfRateAggSm_ );
}

// Only where a start or stop of an interface is under way, and this teardown is called from within: what a unit on its
// way in or out has not let go is let go here, because that unit will find nothing left to do. Above all no link stays
// shut down.
void RateMonSm::letGoOfTheRest() {
   for( auto [intf, sampler] : monIntfDir()->monitoredIntfIterator() ) {
      sampler->dependentUnitDelAll();  // out of the units' aggregates
      monIntfDir()->monitoredIntfDel( intf );
      delFromViolatingIntfsCollection( intf );
   }
   for( auto [intf, intfMonSm] : intfMonIterator() ) {
      intfMonDel( intf );
      in().errDisableCauseStatus->intfStatusDel( intf );
   }
}

void RateMonSm::prepareToDie() { TRACE_AS( 4, "void MaintenanceMode::RateMonSm::prepareToDie()", "called" ); }

void RateMonSm::handleInitialized() {
   TRACE_AS( 5, "void MaintenanceMode::RateMonSm::handleInitialized()", "called" );
   KEL_ASSERT( !initialized() );
   auto const & clock = Kel::activityManager().config().clock();
   timerWheelIs( Brim::TimerWheel::TimerWheelIs( nullptr, clock, 1000, 1800, true, 1024 ) );
   unitMonIntfInputIs( new UnitIntfInputDir( "unitMonIntfInput" ) );
   unitDrainedIntfIs( new UnitIntfInputDir( "unitDrainedIntf" ) );
   monIntfDirIs( new MonitoredIntfDir( "monIntfDir" ) );
   newStageHelpers();
   markStatusStale();
   // Who is where in maintenance is told anew by the monitors that units start below.
   in().monIntfStatusDir->monIntfEnterMaintDelAll();
   in().monIntfStatusDir->monIntfUnderMaintDelAll();
   in().monIntfStatusDir->monIntfSpikeUnderMaintDelAll();
   // Units between marking and sweeping: a record stays exactly when its interface is monitored again.
   reenterUnits();
   sweepStaleStatus();
   // Only now, so that the backlog with every interface in it finds units and records settled.
   intfStatusSmIs( IntfStatusSm::IntfStatusSmIs( clock, in().allIntfStatusDir, in().intfToGroupDir, in().groupToUnitDir,
                                                 unitMonIntfInput(), in().intfGroupStatusDir, this ) );
   intfRateAggSmIs(
      IntfRateAggregatorSm::IntfRateAggregatorSmIs( monIntfDir(), in().monIntfStatusDir, in().unitStatusDir ) );
   TRACE( 4, "RateMonSm - initialized" );
   RING( 3, "RateMonSm - initialized" );
   initializedIs( true );
}

// What somebody asked for from inside a write of the start-up was heard by nobody: the root's reactors were silent, and
// stage helpers hand nothing on to a root that is not initialized.
void RateMonSm::catchUp() {
   using Maintenance::Unit::State;
   for( auto [unitName, monitor] : unitMonIterator() ) {
      if( !in().unitStatusDir->status( unitName ) ) handleUnitStatus( unitName );
   }
   for( auto [unitName, unit] : in().unitStatusDir->statusIterator() ) {
      if( takenDown_ ) return;
      bool const served = unitMon( unitName ) != nullptr;
      bool const entering = unit->state() == State::entering && !served;
      bool const leaving = unit->state() == State::leaving && served;
      if( !entering && !leaving ) continue;
      auto const & progressDir = entering ? in().maintEnterProgressDir : in().maintExitProgressDir;
      Kel::Name const instance = entering ? unit->maintEnterInstanceName() : unit->maintExitInstanceName();
      if( !listsOurStage( progressDir->progress( instance ) ) ) continue;
      if( Maintenance::Unit::StageMgrInstKey( instance ).genId() != unit->genId() ) continue;
      doStageForInstance( entering ? Maintenance::enterStageClass : Maintenance::exitStageClass, instance,
                          rateMonStage() );
   }
}

void RateMonSm::newStageHelpers() {
   maintEnterStageHelperIs( new MaintStageHelperSm( Maintenance::enterStageClass, in().maintEnterProgressDir,
                                                    in().maintEnterCompletionStatus, in().maintEnterAgentConfig,
                                                    in().maintEnterAgentStatus, this ) );
   maintEnterStageHelper()->hasNotificationActiveIs( true );
   maintExitStageHelperIs( new MaintStageHelperSm( Maintenance::exitStageClass, in().maintExitProgressDir,
                                                   in().maintExitCompletionStatus, in().maintExitAgentConfig,
                                                   in().maintExitAgentStatus, this ) );
   maintExitStageHelper()->hasNotificationActiveIs( true );
}

void RateMonSm::markStatusStale() {
   std::size_t marked = 0;
   for( auto [intf, status] : in().monIntfStatusDir->monIntfStatusIterator() ) {
      status->staleIs( true );
      ++marked;
   }
   TRACE_AS( 4, "handleInitialized", "marked " << marked << " entries as stale in MonIntfStatusDir." );
   RING( 3, "restart: num monIntfStatusDir entries marked as stale {}", marked );
}

void RateMonSm::reenterUnits() {
   for( auto [unitName, unit] : in().unitStatusDir->statusIterator() ) {
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
         // The instance is over, so no progress record says anything; only its name and generation do.
         reenter = Maintenance::Unit::StageMgrInstKey( enterInstance ).genId() == unit.genId();
         break;
      case State::entering: reenter = stageActive( in().maintEnterProgressDir, enterInstance, unit ); break;
      case State::leaving:
         // Nothing is monitored after a restart, so there is nothing to let go: the exit is complete at once.
         if( !stageActive( in().maintExitProgressDir, exitInstance, unit ) ) return;
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
   auto const progress = progressDir->progress( instanceName );
   if( !progress ) {
      TRACE_AS( 4, "handleInitialized", "InstanceStatus not found for unit " << unit.unitName() );
      return false;
   }
   // A record of an earlier generation is what a stage manager has not cleaned up yet.
   if( Maintenance::Unit::StageMgrInstKey( instanceName ).genId() != unit.genId() ) return false;
   return listsOurStage( progress );
}

void RateMonSm::sweepStaleStatus() {
   std::size_t deleted = 0;
   for( auto [intf, status] : in().monIntfStatusDir->monIntfStatusIterator() ) {
      if( !status->stale() ) continue;
      TRACE_AS( 4, "handleInitialized", "deleted stale MonIntfStatusDir entry for intf " << intf );
      RING( 3, "restart: deleted stale monIntfStatus for intf {}", intf );
      in().monIntfStatusDir->monIntfStatusDel( intf );
      // Nobody monitors it, so nobody else would ever bring its link back.
      in().errDisableCauseStatus->intfStatusDel( intf );
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
   // In its place before its start, which writes: whoever ends the unit's maintenance from within must find the
   // monitor.
   auto const made = unitMonIs( Kel::validPtr( new UnitMonSm( unitName, genId, rootSm, monIntf, drainedIntf ) ) );
   made->hasNotificationActiveIs( true );
   if( made->inService() ) made->handleInitialized();
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
   if( made->inService() ) made->handleInitialized();
   return made;
}

bool RateMonSm::isUp( Lumo::IntfId intf ) const {
   auto const status = in().allIntfStatusDir->intfStatus( intf );
   if( !status ) return false;
   return status->operStatus() == Interface::IntfOperStatus::up || in().errDisableCauseStatus->intfStatus( intf );
}

void RateMonSm::startIntfMonInUnits( Lumo::IntfId intf ) {
   counters()->numStartIntfMonInUnitsInc( 1 );
   TRACE( 1, "intf " << intf );
   auto const member = in().intfToGroupDir->intfToGroup( intf );
   if( !member ) return;
   for( auto [group, present] : member->groupIteratorConst() ) {
      auto const units = in().groupToUnitDir->groupToUnit( group );
      if( !units ) continue;
      for( auto [unitName, inUnit] : units->unitNameIteratorConst() ) {
         auto const monIntf = inUnit ? unitMonIntfInput()->unitIntfInput( unitName ) : nullptr;
         if( !monIntf ) continue;
         TRACE( 1, "Starting intf mon for intf " << intf << " in unit " << unitName << ", group " << group );
         RING( 3, "Starting intf mon for intf {} in unit {}, group {}", intf, unitName, group.text() );
         monIntf->intfIs( intf, true );
         if( !serving() ) return;
      }
   }
}

void RateMonSm::stopIntfMonInUnits( Lumo::IntfId intf ) {
   TRACE( 1, "intf " << intf );
   if( !intfMon( intf ) ) return;
   counters()->numStopIntfMonInUnitsInc( 1 );
   // From every unit, member or not: whether it is one was asked by whoever calls this.
   for( auto [unitName, monIntf] : unitMonIntfInput()->unitIntfInputIterator() ) monIntf->intfDel( intf );
}

void RateMonSm::delFromViolatingIntfsCollection( Lumo::IntfId intf ) {
   for( auto [unitName, unit] : in().unitStatusDir->statusIterator() ) unit->intfsViolatingTrafficThresholdDel( intf );
}

}  // namespace MaintenanceMode
