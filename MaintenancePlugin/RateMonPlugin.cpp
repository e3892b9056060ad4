#include "RateMonPlugin.h"

#include "RateMonTrace.h"
#include "errdisable/ErrdisableLib.h"
#include "kel/Dir.h"
#include "records/Names.h"

KEL_TYPE( MaintenanceMode::RateMonPluginInfoDumper )
KEL_TYPE( MaintenanceMode::RateMonSmLoader )

namespace MaintenanceMode {

namespace Path = Maintenance::Path;
using Maintenance::enterStageClass;
using Maintenance::exitStageClass;

namespace {

Kel::Name const errdisableCause( Maintenance::shutdownCause );

// Everything that makes up the plug-in can be found by its type's name once the shared object is loaded.
struct TypeRegistration {
   TypeRegistration() {
      for( Kel::TypeInfo const * type :
           { &UnitMonSm::kelType(), &IntfMonSm::kelType(), &RateMonSmLoader::kelType(),
             &RateMonSmDebugCounters::kelType(), &IntfStatusSm::kelType(), &RateMonPluginInfoDumper::kelType(),
             &IntfRateAggregatorSm::kelType(), &UnitIntfInputDir::kelType(), &MaintStageHelperSm::kelType(),
             &UnitIntfInput::kelType(), &IntfCounterInfo::kelType(), &RateMonSm::kelType(),
             &MonitoredIntfDir::kelType(), &MonitoredIntf::kelType() } ) {
         Kel::typeNodeIs( *type );
      }
   }
};

}  // namespace

// The order of these three matters: types, then the log message, then the plug-in that registers itself.
static TypeRegistration const typeRegistration;
Kel::LogHandle mmodeIntfProfileChange( "MMODE_INTF_PROFILE_CHANGE", 5,
                                       "For interface %s, interface profile changed to %s (was %s)",
                                       "A different interface profile was picked based on precedence because the same "
                                       "same interface was part of multiple units.",
                                       Kel::NoActionRequired, 0.0, 1.0, 0 );
static RateMonPlugin rateMonPlugin;

RateMonPlugin::RateMonPlugin() {
   auto & loader = Maintenance::DefaultPluginLoader();
   Plugin::LoaderInitCaller const caller( [this]( Maintenance::PluginContext * context ) { init( context ); } );
   loader.registerPlugin( "RateMonPlugin", loader.typeString(), "", "", caller );
}

void RateMonPlugin::init( Maintenance::PluginContext * context ) {
   // Made by type name, as the host makes entities, and found again by its own: the directory may hold other plug-ins'
   // as well.
   context->pluginDir()->newEntity( "MaintenanceMode::RateMonSmLoader", "rateMonPlugin" );
   auto const entityPtr = context->pluginDir()->entityRef( "rateMonPlugin" );
   KEL_ASSERT( entityPtr );
   loader_ = Kel::dynamicPtrCast<RateMonSmLoader>( entityPtr );
   loader_->init( context );
}

RateMonSmLoader::~RateMonSmLoader() = default;

void RateMonSmLoader::init( Maintenance::PluginContext * pluginContext ) {
   TRACE( 4, "RateMonSmLoader::init" );
   RING( 3, "RaeMonSmLoader::init" );
   contextIs( pluginContext );
   // The dumper before anything that can fail: a start that hangs in its mounts can still be asked what it is doing.
   pluginInfoDumperIs( new RateMonPluginInfoDumper( "RateMonPlugin" ) );
   pluginInfoDumper()->contextIs( this );
   context()->dumpPluginInfoIs( pluginInfoDumper().get() );
   mountAll();
   TRACE( 4, "RateMonSmLoader::init - completed all doMounts" );
   RING( 3, "RateMonSmLoader::init - completed all doMounts" );
}

// Some of these are never looked up again, and the group configuration is mounted twice: the host counts on the list as
// it is.
void RateMonSmLoader::mountAll() {
   auto const group = context()->entityManager()->getMountGroup( this );
   auto const mount = [&]( std::string_view path, char const * type, char const * mode ) {
      group->doMount( Dovra::Mount{ path, type, mode } );
   };
   mount( Path::counterWriterStatus, "Kel::Dir", "ri" );
   mount( Path::ethLagConfig, "Interface::EthLagIntfConfigDir", "r" );
   mount( Path::lagConfig, "Lag::Config", "r" );
   mount( Path::lagInput, "Kel::Dir", "ri" );
   mount( Path::vlanStatus, "Bridging::VlanStatusDir", "r" );
   mount( Path::unitStatus, "Maintenance::Unit::StatusDir", "r" );
   mount( Path::groupConfig, "Maintenance::MaintenanceGroup::ConfigDir", "r" );
   mount( Path::groupStatus, "IntfGroup::StatusDir", "r" );
   mount( Path::profiles, "IntfMaintenanceProfile::ConfigDir", "r" );
   mount( Path::intfToGroup, "IntfMaintenance::IntfToGroupDir", "r" );
   mount( Path::groupToUnit, "Maintenance::GroupToUnitDir", "r" );
   mount( Path::errdisableCauses, "Kel::Dir", "wi" );
   mount( Path::errdisableCauseGroups, "Kel::Dir", "wi" );
   mount( Path::monIntfStatus, "Maintenance::MonIntfStatusDir", "w" );
   mount( Path::defaultProfile, "Maintenance::Profile::DefaultProfile", "r" );
   mount( Path::groupConfig, "Maintenance::MaintenanceGroup::ConfigDir", "r" );
   mount( Path::stageAgentConfig( enterStageClass ), "Stage::AgentConfig", "r" );
   mount( Path::stageAgentConfig( exitStageClass ), "Stage::AgentConfig", "r" );
   mount( Path::stageAgentStatus( enterStageClass ), "Stage::AgentStatus", "w" );
   mount( Path::stageAgentStatus( exitStageClass ), "Stage::AgentStatus", "w" );
   mount( Path::stageProgress( enterStageClass ), "Stage::ProgressDir", "r" );
   mount( Path::stageProgress( exitStageClass ), "Stage::ProgressDir", "r" );
   mount( Path::stageCompletion( enterStageClass ), "Stage::CompletionStatusDir", "r" );
   mount( Path::stageCompletion( exitStageClass ), "Stage::CompletionStatusDir", "r" );
   group->doClose( false, "", 0.0 );
}

void RateMonSmLoader::doMountsComplete( Dovra::MountStatus mountStatus, Kel::Ptr<Dovra::EntityManager> entityManager ) {
   // No retry and no partial start: a rate monitor that misses a directory would call links drained that it cannot see.
   KEL_ASSERT_TEXT( mountStatus == Dovra::mountSuccess_, "mountStatus == Dovra::mountSuccess_" );
   TRACE( 4, "RateMonSmLoader::doMountsComplete" );
   RING( 3, "RateMonSmLoader - doMountsComplete" );
   createErrdisableEntity( entityManager );
   if( !inService() ) return;  // the new cause was heard by somebody who took the plug-in down
   startCounterReader( entityManager );
   lookUpMounted( *entityManager );
   auto const root = newRateMonSm( inputs() );
   // Taken down from inside one of the root's first writes, when there was no root yet to take down with it.
   if( !inService() ) return root->takeDown();
   rateMonSmIs( root );
   TRACE( 4, "RateMonSmLoader::doMountsComplete - done" );
   RING( 3, "RateMonSmLoader::doMountsComplete - done" );
}

void RateMonSmLoader::createErrdisableEntity( Kel::Ptr<Dovra::EntityManager> const & entityManager ) {
   TRACE( 4, "RateMonSmLoader::createErrdisableEntity" );
   ErrdisableLib::ErrdisableCauseGroupInit( entityManager, errdisableCause, false,
                                            "Interface has been shut down for maintenance.", false, true, true, true, 1,
                                            0, "maint-down" );
}

void RateMonSmLoader::startCounterReader( Kel::Ptr<Dovra::EntityManager> const & entityManager ) {
   ethIntfCounterWriterStatusDirIs( entityManager->getEntity<Kel::Dir>( Path::counterWriterStatus ) );
   ethIntfCounterReaderSmIs(
      new Interface::EthIntfCounterReaderSm( context()->quillEntityManager(), ethIntfCounterWriterStatusDir() ) );
   // Before the reader looks for its table: it decides where it looks.
   ethIntfCounterReaderSm()->enableLegacyShmemManSupport();
   ethIntfCounterReaderSm()->handleInitialized();
   phyCounterDirIs( ethIntfCounterReaderSm()->allEthIntfCounterPtrDir() );
}

void RateMonSmLoader::lookUpMounted( Dovra::EntityManager const & db ) {
   lagConfigDirIs( db.getEntity<Lag::Config>( Path::lagConfig ) );
   vlanStatusDirIs( db.getEntity<Bridging::VlanStatusDir>( Path::vlanStatus ) );
   allIntfStatusDirIs( db.getEntity<Interface::AllIntfStatusDir>( Path::intfStatus ) );
   unitStatusDirIs( db.getEntity<Maintenance::Unit::StatusDir>( Path::unitStatus ) );
   maintenanceGroupDirIs( db.getEntity<Maintenance::MaintenanceGroup::ConfigDir>( Path::groupConfig ) );
   intfGroupStatusDirIs( db.getEntity<IntfGroup::StatusDir>( Path::groupStatus ) );
   intfProfileConfigDirIs( db.getEntity<IntfMaintenanceProfile::ConfigDir>( Path::profiles ) );
   intfToGroupDirIs( db.getEntity<IntfMaintenance::IntfToGroupDir>( Path::intfToGroup ) );
   groupToUnitDirIs( db.getEntity<Maintenance::GroupToUnitDir>( Path::groupToUnit ) );
   auto const causes = db.getEntity<Kel::Dir>( Path::errdisableCauses );
   auto const msCause =
      causes ? Kel::dynamicPtrCast<Errdisable::CauseStatus>( causes->entityRef( errdisableCause ) ) : nullptr;
   KEL_ASSERT_TEXT( msCause, "msCause && \" errdisable cause maintenance-shutdown is NULL \"" );
   errDisableCauseStatusIs( msCause );
   monIntfStatusDirIs( db.getEntity<Maintenance::MonIntfStatusDir>( Path::monIntfStatus ) );
   defaultIntfProfileIs( db.getEntity<Maintenance::Profile::DefaultProfile>( Path::defaultProfile ) );
   maintEnterCompletionStatusIs( db.getEntity<Stage::CompletionStatusDir>( Path::stageCompletion( enterStageClass ) ) );
   maintExitCompletionStatusIs( db.getEntity<Stage::CompletionStatusDir>( Path::stageCompletion( exitStageClass ) ) );
   maintEnterProgressDirIs( db.getEntity<Stage::ProgressDir>( Path::stageProgress( enterStageClass ) ) );
   maintExitProgressDirIs( db.getEntity<Stage::ProgressDir>( Path::stageProgress( exitStageClass ) ) );
   maintEnterAgentConfigIs( db.getEntity<Stage::AgentConfig>( Path::stageAgentConfig( enterStageClass ) ) );
   maintExitAgentConfigIs( db.getEntity<Stage::AgentConfig>( Path::stageAgentConfig( exitStageClass ) ) );
   maintEnterAgentStatusIs( db.getEntity<Stage::AgentStatus>( Path::stageAgentStatus( enterStageClass ) ) );
   maintExitAgentStatusIs( db.getEntity<Stage::AgentStatus>( Path::stageAgentStatus( exitStageClass ) ) );
}

RateMonSmInputs RateMonSmLoader::inputs() const {
   return { .phyCounterDir = phyCounterDir(),
            .lagConfigDir = lagConfigDir(),
            .vlanStatusDir = vlanStatusDir(),
            .allIntfStatusDir = allIntfStatusDir(),
            .unitStatusDir = unitStatusDir(),
            .maintenanceGroupDir = maintenanceGroupDir(),
            .intfGroupStatusDir = intfGroupStatusDir(),
            .intfProfileConfigDir = intfProfileConfigDir(),
            .intfToGroupDir = intfToGroupDir(),
            .groupToUnitDir = groupToUnitDir(),
            .errDisableCauseStatus = errDisableCauseStatus(),
            .monIntfStatusDir = monIntfStatusDir(),
            .defaultIntfProfile = defaultIntfProfile(),
            .maintEnterCompletionStatus = maintEnterCompletionStatus(),
            .maintExitCompletionStatus = maintExitCompletionStatus(),
            .maintEnterAgentConfig = maintEnterAgentConfig(),
            .maintExitAgentConfig = maintExitAgentConfig(),
            .maintEnterAgentStatus = maintEnterAgentStatus(),
            .maintExitAgentStatus = maintExitAgentStatus(),
            .maintEnterProgressDir = maintEnterProgressDir(),
            .maintExitProgressDir = maintExitProgressDir() };
}

void RateMonSmLoader::prepareToDie() {
   TRACE( 4, "called" );
   mountGroupsDel();  // a start that is still mounting ends here: nobody is called back any more
   if( auto const root = rateMonSm() ) {
      root->prepareToDie();
      // Not left to the last reference: taken down from inside one of the root's own writes, that would only go when
      // the writes end.
      root->takeDown();
   }
   rateMonSmDel();
   // After the root, whose samplers read from the reader's directory to the last.
   if( ethIntfCounterReaderSm() ) ethIntfCounterReaderSm()->prepareToDie();
   ethIntfCounterReaderSmDel();
   pluginInfoDumperDel();
}

}  // namespace MaintenanceMode
