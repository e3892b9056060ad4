#include "MaintStageHelperSm.h"

#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "records/Names.h"

KEL_TYPE( MaintenanceMode::MaintStageHelperSm )

namespace MaintenanceMode {

class MaintStageHelperSm::KelProgressDir final : public Stage::ProgressDir::NotifieeConst {
 public:
   KelProgressDir( MaintStageHelperSm & owner, Kel::Ptr<Stage::ProgressDir const> const & dir )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( dir );
   }
   void onProgress( Kel::Name instanceName ) override {
      owner_.progress_.sync( instanceName, notifier()->progress( instanceName ) );
   }
   void onProgresskelImmediate() override { owner_.progress_.syncAll( notifier()->progressIteratorConst() ); }

 private:
   MaintStageHelperSm & owner_;
};

class MaintStageHelperSm::KelMaintStageCompletionStatus final : public Stage::CompletionStatusDir::NotifieeConst {
 public:
   KelMaintStageCompletionStatus( MaintStageHelperSm & owner, Kel::Ptr<Stage::CompletionStatusDir const> const & dir )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( dir );
   }
   void onStatus( Kel::Name instanceName ) override { owner_.handleMaintInstStatusDel( instanceName ); }

 private:
   MaintStageHelperSm & owner_;
};

class MaintStageHelperSm::KelProgress final : public Stage::Progress::NotifieeConst {
 public:
   explicit KelProgress( MaintStageHelperSm & owner ) : Reactor( owner ), owner_( owner ) {}
   void onStage( Kel::String8 stage ) override { handleStage( stage ); }
   // A record that arrives whole: each stage that it holds is handed on.
   void onStagekelImmediate() override {
      for( auto [stage, active] : notifier()->stageIteratorConst() ) {
         // A stage handed on had the record deleted, or ended the plug-in.
         if( !inService() || !owner_.inService() ) return;
         handleStage( stage );
      }
   }

 private:
   void handleStage( Kel::String8 const & stage ) { owner_.handleStage( notifier()->instanceName(), stage ); }

   MaintStageHelperSm & owner_;
};

Kel::String8 const & rateMonStage() {
   static Kel::String8 const stage( Maintenance::rateMonStage );
   return stage;
}

void setStageEventComplete( Kel::Ptr<Stage::AgentStatus> const & agentStatus, Kel::String8 const & stage,
                            Kel::Name const & instanceName, bool del ) {
   TRACE( 4, " agentStatus=" << agentStatus->name() << " stage=" << stage << " instanceName=" << instanceName
                             << " del=" << del );
   RING( 3, "setStageEventComplete: agentStatus={} stage={} instanceName={} del={}", agentStatus->name(), stage,
         instanceName, del );
   Stage::AgentStatusKey const key{ stage, instanceName };
   if( del ) {
      agentStatus->completeDel( key );
   } else {
      agentStatus->completeIs( key, true );
   }
}

MaintStageHelperSm::MaintStageHelperSm( Kel::String8 const & cls,
                                        Kel::Ptr<Stage::ProgressDir const> const & progressDir,
                                        Kel::Ptr<Stage::CompletionStatusDir const> const & completionStatus,
                                        Kel::Ptr<Stage::AgentConfig> const & config,
                                        Kel::Ptr<Stage::AgentStatus> const & status, RateMonSm * root )
   : stageClass_( cls ), agentConfig_( config ), agentStatus_( status ), rateMonSm_( root ), progress_( *this ) {
   hasNotificationActiveIs( false );
   progressDir_ = std::make_unique<KelProgressDir>( *this, progressDir );
   maintStageCompletionStatus_ = std::make_unique<KelMaintStageCompletionStatus>( *this, completionStatus );
   // By hand, because nothing is delivered to a machine under construction. The records' own reactors are as silent, so
   // that no stage is handed on: what is under way, the root finds out for itself.
   progressDir_->onProgresskelImmediate();
   handleInitialized();
}

MaintStageHelperSm::~MaintStageHelperSm() = default;

Kel::Ptr<Stage::ProgressDir const> const & MaintStageHelperSm::progressDir() const { return progressDir_->notifier(); }

Kel::Ptr<Stage::CompletionStatusDir const> const & MaintStageHelperSm::maintStageCompletionStatus() const {
   return maintStageCompletionStatus_->notifier();
}

void MaintStageHelperSm::prepareToDie() {
   progressDir_->notifierIs( nullptr );
   maintStageCompletionStatus_->notifierIs( nullptr );
   progress_.clear();
}

void MaintStageHelperSm::handleInitialized() {
   TRACE_AS( 4, "void MaintenanceMode::MaintStageHelperSm::handleInitialized()", "called" );
   KEL_ASSERT( !initialized() );
   // Marks of instances that the stage manager removed while no agent ran.
   auto const instances = maintStageCompletionStatus();
   for( auto [key, complete] : agentStatus()->completeIterator() ) {
      if( !instances->status( key.instanceName ) ) agentStatus()->completeDel( key );
   }
   initializedIs( true );
}

void MaintStageHelperSm::handleStage( Kel::Name const & instanceName, Kel::String8 const & stage ) {
   TRACE( 9, "stageClass= " << stageClass() << ", stage=" << stage );
   // During its start-up the root finds out by itself what is under way. The entry's value is not looked at: a stage
   // that is set false or removed inside a living record is a request like any other, and it is the root that refuses
   // to report it.
   if( !rateMonSm()->initialized() || stage != rateMonStage() ) return;
   rateMonSm()->doStageForInstance( stageClass(), instanceName, stage );
}

void MaintStageHelperSm::doStageCompleteForInstance( Kel::String8 const & stage, Kel::Name const & instanceName ) {
   TRACE( 9, " stageClass=" << stageClass() << ", stage=" << stage << ", instanceName=" << instanceName );
   setStageEventComplete( agentStatus(), stage, instanceName, false );
}

void MaintStageHelperSm::handleMaintInstStatusDel( Kel::Name const & instanceName ) {
   TRACE_AS( 4, "void MaintenanceMode::MaintStageHelperSm::handleMaintInstStatusDel(Kel::Name)",
             " instanceName: " << instanceName );
   if( maintStageCompletionStatus()->status( instanceName ) ) {
      TRACE_AS( 4, "void MaintenanceMode::MaintStageHelperSm::handleMaintInstStatusDel(Kel::Name)",
                "InstanceName: " << instanceName << " is added to InstStatus" );
      return;
   }
   setStageEventComplete( agentStatus(), rateMonStage(), instanceName, true );
}

}  // namespace MaintenanceMode
