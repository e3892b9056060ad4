// The state directories of the maintenance service: which exist, and of which type. Where each stands: records/Names.h.
//
// Made once by whoever owns the state database, the agent or the simulator, before any plug-in mounts them; all of them
// exist from then on, empty. The members are for the owner's side; a plug-in finds them by path.
#pragma once

#include "dovra/EntityManager.h"
#include "kel/Dir.h"
#include "records/Bridging.h"
#include "records/Group.h"
#include "records/Interface.h"
#include "records/Lag.h"
#include "records/MonIntfStatus.h"
#include "records/Profile.h"
#include "records/Stage.h"
#include "records/Unit.h"

namespace Maintenance {

// The directories of one stage class.
struct StageState {
   StageState( Dovra::EntityManager & database, std::string_view stageClass );

   Kel::Ptr<Stage::AgentConfig> agentConfig;         // which stages the agent serves
   Kel::Ptr<Stage::ProgressDir> progress;            // which stages are active, per instance
   Kel::Ptr<Stage::CompletionStatusDir> completion;  // which instances the stage manager knows
   Kel::Ptr<Stage::AgentStatus> agentStatus;         // what the agent has completed
};

struct MaintenanceState {
   explicit MaintenanceState( Dovra::EntityManager & database );

   Kel::Ptr<Kel::Dir> counterWriterStatus;
   Kel::Ptr<Interface::EthLagIntfConfigDir> ethLagConfig;
   Kel::Ptr<Lag::Config> lagConfig;
   Kel::Ptr<Kel::Dir> lagInput;
   Kel::Ptr<Bridging::VlanStatusDir> vlanStatus;
   Kel::Ptr<Interface::AllIntfStatusDir> intfStatus;
   Kel::Ptr<Unit::StatusDir> unitStatus;
   Kel::Ptr<MaintenanceGroup::ConfigDir> groupConfig;
   Kel::Ptr<IntfGroup::StatusDir> groupStatus;
   Kel::Ptr<IntfMaintenanceProfile::ConfigDir> profiles;
   Kel::Ptr<Profile::DefaultProfile> defaultProfile;
   Kel::Ptr<IntfMaintenance::IntfToGroupDir> intfToGroup;
   Kel::Ptr<GroupToUnitDir> groupToUnit;
   Kel::Ptr<Kel::Dir> errdisableCauses;
   Kel::Ptr<Kel::Dir> errdisableCauseGroups;
   Kel::Ptr<MonIntfStatusDir> monIntfStatus;
   StageState enter;
   StageState exit;
};

}  // namespace Maintenance
