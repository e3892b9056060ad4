// The root's side of the stage protocol: requests become enters and exits of units, reports become completion marks.
#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "records/Names.h"

namespace MaintenanceMode {

using Maintenance::Unit::MaintenanceOp;

void RateMonSm::doStageForInstance( Kel::String8 const & stageClass, Kel::Name const & instanceName,
                                    Kel::String8 const & stage ) {
   // Before anything is decided: a name that is none ends the agent, whatever class it came with.
   Maintenance::Unit::StageMgrInstKey const key( instanceName );
   if( stageClass != Maintenance::enterStageClass && stageClass != Maintenance::exitStageClass ) {
      TRACE( 1, "Invalid maintenance class: " << stageClass << " for instanceName: " << instanceName );
      return;
   }
   auto const op = stageClass == Maintenance::enterStageClass ? MaintenanceOp::enter : MaintenanceOp::exit;
   TRACE( 1, "unit " << key.unitName() << ", genId " << key.genId() << ", stage " << stage << ", op " << op );
   RING( 3, "unit {}, genId {}, stage {}, op {}", key.unitName(), key.genId(), stage, enumName( op ) );
   if( stage != rateMonStage() ) return;
   if( op == MaintenanceOp::enter ) {
      handleUnitMaintenanceEnter( key.unitName(), key.genId() );
   } else {
      handleUnitMaintenanceExit( key.unitName(), key.genId() );
   }
}

void RateMonSm::handleUnitMaintenanceEnter( Kel::String8 const & unitName, uint32_t genId ) {
   TRACE( 2, "unit - " << unitName << ", genId " << genId );
   counters()->numMaintEnterInc( 1 );
   if( auto const present = unitMon( unitName ) ) {
      counters()->numMaintEnterUnitMonPresentInc( 1 );
      TRACE( 1, "Unit " << unitName << " (genId " << present->genId() << ") exists. Exiting maintenance" );
      RING( 3, "Unit {} (genId {}) exists. Exiting maintenance", unitName, present->genId() );
      handleUnitMaintenanceExit( unitName, genId );
      // Whoever heard of the exit may have taken the plug-in down, or entered the unit once more: the later request
      // holds.
      auto const successor = unitMon( unitName );
      if( !serving() || ( successor && successor != present ) ) return;
   }
   // The entries of a unit that is on its way out in this very moment go with it; this entry gets its own.
   unitMonIntfInput()->unitIntfInputDel( unitName );
   unitDrainedIntf()->unitIntfInputDel( unitName );
   auto const monIntf = unitMonIntfInput()->unitIntfInputIs( unitName );
   auto const drainedIntf = unitDrainedIntf()->unitIntfInputIs( unitName );
   KEL_ASSERT( !unitMon( unitName ) );
   unitMonIs( unitName, genId, this, monIntf, drainedIntf );
   TRACE( 2, "started traffic monitoring for unit " << unitName );
   RING( 3, "started traffic monitoring for unit {}", unitName );
}

void RateMonSm::handleUnitMaintenanceExit( Kel::String8 const & unitName, uint32_t genId ) {
   TRACE( 1, "unit - " << unitName << ", genId " << genId );
   counters()->numMaintExitInc( 1 );
   auto const monitor = unitMon( unitName );
   if( !monitor ) {
      counters()->numMaintExitNoUnitMonInc( 1 );
      TRACE( 1, "Got maintenance exit notification when unitMonSm does not exist - unit " << unitName );
      TRACE( 1, "  notifying stage completion anyway." );
      RING( 3, "notifying stage completion for non-existent unitMonSm {}", unitName );
      // An exit is answered also for a unit that was never served: the stage manager would wait for ever.
      notifyStageCompletion( unitName, genId, MaintenanceOp::exit );
      return;
   }
   auto const unit = in().unitStatusDir->status( unitName );
   if( unit && unit->state() == Maintenance::Unit::State::entering ) {
      counters()->numMaintExitInMaintModeEnterInc( 1 );
   }
   // The exit's generation before the teardown: the teardown reports the exit stage, and it is the exit's instance that
   // waits.
   monitor->genIdIs( genId );
   unitMonDel( unitName );
   TRACE( 1, "done with traffic monitoring for unit " << unitName );
   RING( 3, "done with traffic monitoring for unit {}", unitName );
}

bool RateMonSm::listsOurStage( Kel::Ptr<Stage::Progress const> const & progress ) {
   bool const * const active = progress ? progress->stage( rateMonStage() ) : nullptr;
   return active && *active;
}

void RateMonSm::notifyStageCompletion( Kel::String8 const & unitName, uint32_t genId, MaintenanceOp op ) {
   Kel::Name const instanceName = Maintenance::Unit::StageMgrInstKey( unitName, genId ).instanceName();
   bool const entering = op == MaintenanceOp::enter;
   auto const & progressDir = entering ? in().maintEnterProgressDir : in().maintExitProgressDir;
   auto const progress = progressDir->progress( instanceName );
   if( !progress ) {
      TRACE( 1, "No instance found for genId " << genId << " unitName " << unitName );
      counters()->numNoNotifyNoStageInputInc( 1 );
      return;
   }
   if( !listsOurStage( progress ) ) {
      TRACE( 1, "Unit " << unitName << ", genId " << genId << " - RateMon not among active stages. Not notifying " );
      counters()->numNoNotifyActiveStageMismatchInc( 1 );
      return;
   }
   if( !in().unitStatusDir->status( unitName ) ) {
      TRACE( 1, "Unit " << unitName << " ,genId " << genId << "does not exit in unit status directory" );
      counters()->numNoNotifyNoUnitStatusInc( 1 );
      return;
   }
   TRACE( 1, "Unit - " << unitName << ", genId " << genId << ", op " << op << ", stage ratemon " );
   RING( 3, "Notifying stage completion - unit {} ,genId {}, stage ratemon, op {}", unitName, genId, enumName( op ) );
   // The helpers are gone already when the root itself is being torn down: the report is counted and not written.
   auto const helper = entering ? maintEnterStageHelper() : maintExitStageHelper();
   // There is no look at an earlier mark: a repeated report writes the same once more, which notifies nobody.
   if( helper ) helper->doStageCompleteForInstance( rateMonStage(), instanceName );
   counters()->numNotifyStageCompletionInc( 1 );
}

void RateMonSm::handleUnitStatus( Kel::String8 const & unitName ) {
   TRACE( 5, "unit " << unitName );
   // Changes of state come by way of the stages; only that the unit is gone is learnt here.
   if( in().unitStatusDir->status( unitName ) ) return;
   if( !unitMon( unitName ) ) return;
   counters()->numUnitStatusDelInc( 1 );
   unitMonDel( unitName );
   TRACE( 1, "Deleted unitMonSm for unit " << unitName );
   RING( 3, "Deleted unitMonSm for unit {}", unitName );
}

}  // namespace MaintenanceMode
