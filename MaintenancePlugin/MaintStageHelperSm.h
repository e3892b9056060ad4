// The agent's side of one stage class, "maintEnter" or "maintExit".
//
// The stage manager publishes a progress record per stage instance and a completion-status record per instance; this
// helper hands each activation of the stage "ratemon" to the root, writes the completion mark when the root asks for
// it, and takes the mark back when the stage manager removes the instance. Owned by the root, one per class. Which
// activations mean what is the root's business.
#pragma once

#include <memory>

#include "kel/Attributes.h"
#include "kel/ReactorMap.h"
#include "records/Stage.h"

namespace MaintenanceMode {

class RateMonSm;

// The only stage that this agent serves, in both classes.
Kel::String8 const & rateMonStage();

// Marks (stage, instance) complete, or deletes the mark.
void setStageEventComplete( Kel::Ptr<Stage::AgentStatus> const & agentStatus, Kel::String8 const & stage,
                            Kel::Name const & instanceName, bool del );

class MaintStageHelperSm final : public Kel::Entity {
   KEL_MACHINE( MaintStageHelperSm, "MaintenanceMode::MaintStageHelperSm", Kel::String8, stageClass )
   KEL_REF_BY( progressDir )
   KEL_REF_BY( maintStageCompletionStatus )
   KEL_REF( Kel::Ptr<Stage::AgentConfig>, agentConfig )
   KEL_REF( Kel::Ptr<Stage::AgentStatus>, agentStatus )
   KEL_REF( RateMonSm *, rateMonSm )
   KEL_ATTR( bool, initialized )
   KEL_ENTITY_END

   MaintStageHelperSm( Kel::String8 const & stageClass, Kel::Ptr<Stage::ProgressDir const> const & progressDir,
                       Kel::Ptr<Stage::CompletionStatusDir const> const & completionStatus,
                       Kel::Ptr<Stage::AgentConfig> const & agentConfig,
                       Kel::Ptr<Stage::AgentStatus> const & agentStatus, RateMonSm * rateMonSm );
   ~MaintStageHelperSm() override;

   // What the helper watches; null after its end.
   [[nodiscard]] Kel::Ptr<Stage::ProgressDir const> const & progressDir() const;
   [[nodiscard]] Kel::Ptr<Stage::CompletionStatusDir const> const & maintStageCompletionStatus() const;

   void handleInitialized();
   void handleMaintInstStatusDel( Kel::Name const & instanceName );
   // An entry of an instance's stage map changed, whatever its value.
   void handleStage( Kel::Name const & instanceName, Kel::String8 const & stage );
   void doStageCompleteForInstance( Kel::String8 const & stage, Kel::Name const & instanceName );

   void prepareToDie() override;

 private:
   class KelProgressDir;
   class KelMaintStageCompletionStatus;
   class KelProgress;

   Kel::ReactorMap<KelProgress, Kel::Name, MaintStageHelperSm> progress_;
   std::unique_ptr<KelProgressDir> progressDir_;
   std::unique_ptr<KelMaintStageCompletionStatus> maintStageCompletionStatus_;
};

}  // namespace MaintenanceMode
