#include "state/MaintenanceState.h"

#include "records/Names.h"

namespace Maintenance {

StageState::StageState( Dovra::EntityManager & db, std::string_view stageClass )
   : agentConfig( db.create<Stage::AgentConfig>( Path::stageAgentConfig( stageClass ) ) ),
     progress( db.create<Stage::ProgressDir>( Path::stageProgress( stageClass ) ) ),
     completion( db.create<Stage::CompletionStatusDir>( Path::stageCompletion( stageClass ) ) ),
     agentStatus( db.create<Stage::AgentStatus>( Path::stageAgentStatus( stageClass ) ) ) {}

// Nothing is filled here: a plug-in's mounts only promise that a directory exists, whatever the host puts in later.
MaintenanceState::MaintenanceState( Dovra::EntityManager & db )
   : counterWriterStatus( db.create<Kel::Dir>( Path::counterWriterStatus ) ),
     ethLagConfig( db.create<Interface::EthLagIntfConfigDir>( Path::ethLagConfig ) ),
     lagConfig( db.create<Lag::Config>( Path::lagConfig ) ),
     lagInput( db.create<Kel::Dir>( Path::lagInput ) ),
     vlanStatus( db.create<Bridging::VlanStatusDir>( Path::vlanStatus ) ),
     intfStatus( db.create<Interface::AllIntfStatusDir>( Path::intfStatus ) ),
     unitStatus( db.create<Unit::StatusDir>( Path::unitStatus ) ),
     groupConfig( db.create<MaintenanceGroup::ConfigDir>( Path::groupConfig ) ),
     groupStatus( db.create<IntfGroup::StatusDir>( Path::groupStatus ) ),
     profiles( db.create<IntfMaintenanceProfile::ConfigDir>( Path::profiles ) ),
     defaultProfile( db.create<Profile::DefaultProfile>( Path::defaultProfile ) ),
     intfToGroup( db.create<IntfMaintenance::IntfToGroupDir>( Path::intfToGroup ) ),
     groupToUnit( db.create<GroupToUnitDir>( Path::groupToUnit ) ),
     errdisableCauses( db.create<Kel::Dir>( Path::errdisableCauses ) ),
     errdisableCauseGroups( db.create<Kel::Dir>( Path::errdisableCauseGroups ) ),
     monIntfStatus( db.create<MonIntfStatusDir>( Path::monIntfStatus ) ),
     enter( db, enterStageClass ),
     exit( db, exitStageClass ) {}

}  // namespace Maintenance
