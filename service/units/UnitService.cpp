#include "units/UnitService.h"

#include "config/Config.h"
#include "records/Names.h"

namespace Service {

using Maintenance::Unit::State;

namespace {

Kel::String8 const stageName( Maintenance::rateMonStage );
static_assert( Config::rateMonStage == Maintenance::rateMonStage, "the file names the stage that the plug-in serves" );

bool complete( Maintenance::StageState const & stage, Kel::Name const & instance ) {
   return stage.agentStatus->complete( Stage::AgentStatusKey{ stageName, instance } ) != nullptr;
}

}  // namespace

class UnitService::Advance final : public Kel::Deferred {
 public:
   explicit Advance( UnitService & owner ) : owner_( owner ) {}
   void onTimeMin() override { owner_.advance(); }

 private:
   UnitService & owner_;
};

class UnitService::KelComplete final : public Stage::AgentStatus::NotifieeConst {
 public:
   KelComplete( UnitService & owner, Kel::Ptr<Stage::AgentStatus const> const & status ) : owner_( owner ) {
      notifierIs( status );
   }
   // A mark that is taken back comes here too; advance() looks for itself.
   void onComplete( Stage::AgentStatusKey ) override { owner_.advance_->timeMinIs( 0 ); }

 private:
   UnitService & owner_;
};

UnitService::UnitService( Maintenance::MaintenanceState & state, ConfigRecords & config )
   : state_( state ),
     config_( config ),
     advance_( std::make_unique<Advance>( *this ) ),
     enterComplete_( std::make_unique<KelComplete>( *this, state.enter.agentStatus ) ),
     exitComplete_( std::make_unique<KelComplete>( *this, state.exit.agentStatus ) ) {
   for( auto * stage : { &state_.enter, &state_.exit } ) stage->agentConfig->stageIs( stageName, true );
}

UnitService::~UnitService() = default;

UnitService::Answer UnitService::enter( std::string const & unitName ) {
   auto const unit = state_.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return { Outcome::unknownUnit };
   switch( unit->state() ) {
      case State::entering:
      case State::inMaintenance: return { Outcome::already, unit->genId() };
      // Not broken off, as an exit does with an entry: it waits for no traffic and is soon over.
      case State::leaving: return { Outcome::busy, unit->genId() };
      case State::unknown:
      case State::active:
      case State::failed: break;
   }
   startInstance( *unit, state_.enter, State::entering );
   return { Outcome::started, unit->genId() };
}

UnitService::Answer UnitService::exit( std::string const & unitName ) {
   auto const unit = state_.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return { Outcome::unknownUnit };
   switch( unit->state() ) {
      case State::unknown:
      case State::active:
      case State::leaving: return { Outcome::already, unit->genId() };
      // The entry is given up first, so that a unit never has two instances.
      case State::entering: removeInstance( state_.enter, unit->maintEnterInstanceName() ); break;
      case State::inMaintenance:
      case State::failed: break;
   }
   startInstance( *unit, state_.exit, State::leaving );
   return { Outcome::started, unit->genId() };
}

void UnitService::startInstance( Maintenance::Unit::Status & unit, Maintenance::StageState & stage, State state ) {
   // Generation and instance before the state: of these only the state notifies, and whoever hears of it reads the
   // others.
   unit.genIdIs( unit.genId() + 1 );
   Kel::Name const instance = Maintenance::Unit::StageMgrInstKey( unit.unitName(), unit.genId() ).instanceName();
   if( state == State::entering ) {
      unit.maintEnterInstanceNameIs( instance );
   } else {
      unit.maintExitInstanceNameIs( instance );
   }
   unit.stateIs( state );
   // After the state, by which units take precedence, and before the stage: the monitors that it starts, or leaves to
   // other units, take the profile that is selected then.
   config_.selectProfiles();
   // Completion status first: the plug-in may mark the stage within the write of the progress record, and a mark whose
   // instance has no status looks like one that was left behind.
   stage.completion->statusIs( instance );
   stage.progress->progressIs( instance )->stageIs( stageName, true );
}

void UnitService::removeInstance( Maintenance::StageState & stage, Kel::Name const & instance ) {
   // The other way round: without the progress record nothing is marked any more, so the mark that the plug-in takes
   // back with the completion status is the last.
   stage.progress->progressDel( instance );
   stage.completion->statusDel( instance );
}

void UnitService::advance() {
   // All units, because several marks may have come since this was asked for.
   for( auto [name, unit] : state_.unitStatus->statusIterator() ) {
      Kel::Name const entered = unit->maintEnterInstanceName();
      Kel::Name const left = unit->maintExitInstanceName();
      if( unit->state() == State::entering && complete( state_.enter, entered ) ) {
         // Profiles are not selected anew: a unit in maintenance has the precedence of one that enters.
         unit->stateIs( State::inMaintenance );
         removeInstance( state_.enter, entered );
      } else if( unit->state() == State::leaving && complete( state_.exit, left ) ) {
         unit->stateIs( State::active );
         removeInstance( state_.exit, left );
         config_.selectProfiles();
      }
   }
}

}  // namespace Service
