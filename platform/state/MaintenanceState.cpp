#include "state/MaintenanceState.h"

#include "records/Cell.h"

namespace Maintenance {

StageState::StageState( Dovra::EntityManager & database, std::string const & cls )
   : stageClass( cls ),
     agentConfig( database.create<Stage::AgentConfig>( Cell::path( "stageInput/" + cls + "/MaintenanceMode", 0 ) ) ),
     progress( database.create<Stage::ProgressDir>( Cell::path( "stage/" + cls + "/progress", 0 ) ) ),
     completion( database.create<Stage::CompletionStatusDir>( Cell::path( "stage/" + cls + "/completionstatus", 0 ) ) ),
     agentStatus(
        database.create<Stage::AgentStatus>( Cell::path( "stageAgentStatus/" + cls + "/MaintenanceMode", 0 ) ) ) {}

MaintenanceState::MaintenanceState( Dovra::EntityManager & db )
   : counterWriterStatus( db.create<Kel::Dir>( "interface/ethIntfCounter/writerStatus" ) ),
     ethLagConfig( db.create<Interface::EthLagIntfConfigDir>( "interface/config/eth/lag" ) ),
     lagConfig( db.create<Lag::Config>( "lag/config" ) ),
     lagInput( db.create<Kel::Dir>( "lag/input/config" ) ),
     vlanStatus( db.create<Bridging::VlanStatusDir>( "bridging/vlan/status" ) ),
     intfStatus( db.create<Interface::AllIntfStatusDir>( "interface/status/all" ) ),
     unitStatus( db.create<Unit::StatusDir>( "maintenance/unit/status" ) ),
     groupConfig( db.create<MaintenanceGroup::ConfigDir>( "maintenance/group/config" ) ),
     groupStatus( db.create<IntfGroup::StatusDir>( "group/status/interface" ) ),
     profiles( db.create<IntfMaintenanceProfile::ConfigDir>( "maintenance/profile/config/interface" ) ),
     defaultProfile( db.create<Profile::DefaultProfile>( "maintenance/profile/config/default/interface" ) ),
     intfToGroup( db.create<IntfMaintenance::IntfToGroupDir>( "maintenance/mapping/member/interface" ) ),
     groupToUnit( db.create<GroupToUnitDir>( "maintenance/mapping/group" ) ),
     errdisableCauses( db.create<Kel::Dir>( "interface/errdisable/cause" ) ),
     errdisableCauseGroups( db.create<Kel::Dir>( "interface/errdisable/causegroup" ) ),
     monIntfStatus( db.create<MonIntfStatusDir>( "maintenance/interface/status/ratemon" ) ),
     enter( db, "maintEnter" ),
     exit( db, "maintExit" ) {}

}  // namespace Maintenance
