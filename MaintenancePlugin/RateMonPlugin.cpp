#include "RateMonPlugin.h"

#include "RateMonTrace.h"
#include "errdisable/ErrdisableLib.h"
#include "kel/Dir.h"
#include "records/Cell.h"

KEL_TYPE( MaintenanceMode::RateMonPluginInfoDumper )
KEL_TYPE( MaintenanceMode::RateMonSmLoader )

namespace MaintenanceMode {

namespace {

Kel::Name const errdisableCause( "maintenance-shutdown" );

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
   context_ = pluginContext;
   pluginInfoDumperIs( new RateMonPluginInfoDumper( "RateMonPlugin" ) );
   pluginInfoDumper()->contextIs( this );
   context_->dumpPluginInfoIs( pluginInfoDumper().get() );
   mountAll();
   TRACE( 4, "RateMonSmLoader::init - completed all doMounts" );
   RING( 3, "RateMonSmLoader::init - completed all doMounts" );
}

// Some of these are never looked up again, and the group configuration is mounted twice: the host counts on the list as it is.
void RateMonSmLoader::mountAll() {
   auto const group = context_->entityManager()->getMountGroup( this );
   auto const mount = [&]( std::string const & path, char const * type, char const * mode ) {
      group->doMount( Dovra::Mount{ path, type, mode } );
   };
   auto const cell = []( char const * path ) { return Cell::path( path, 0 ); };
   mount( "interface/ethIntfCounter/writerStatus", "Kel::Dir", "ri" );
   mount( "interface/config/eth/lag", "Interface::EthLagIntfConfigDir", "r" );
   mount( "lag/config", "Lag::Config", "r" );
   mount( "lag/input/config", "Kel::Dir", "ri" );
   mount( "bridging/vlan/status", "Bridging::VlanStatusDir", "r" );
   mount( "maintenance/unit/status", "Maintenance::Unit::StatusDir", "r" );
   mount( "maintenance/group/config", "Maintenance::MaintenanceGroup::ConfigDir", "r" );
   mount( "group/status/interface", "IntfGroup::StatusDir", "r" );
   mount( "maintenance/profile/config/interface", "IntfMaintenanceProfile::ConfigDir", "r" );
   mount( "maintenance/mapping/member/interface", "IntfMaintenance::IntfToGroupDir", "r" );
   mount( "maintenance/mapping/group", "Maintenance::GroupToUnitDir", "r" );
   mount( "interface/errdisable/cause", "Kel::Dir", "wi" );
   mount( "interface/errdisable/causegroup", "Kel::Dir", "wi" );
   mount( "maintenance/interface/status/ratemon", "Maintenance::MonIntfStatusDir", "w" );
   mount( "maintenance/profile/config/default/interface", "Maintenance::Profile::DefaultProfile", "r" );
   mount( "maintenance/group/config", "Maintenance::MaintenanceGroup::ConfigDir", "r" );
   mount( cell( "stageInput/maintEnter/MaintenanceMode" ), "Stage::AgentConfig", "r" );
   mount( cell( "stageInput/maintExit/MaintenanceMode" ), "Stage::AgentConfig", "r" );
   mount( cell( "stageAgentStatus/maintEnter/MaintenanceMode" ), "Stage::AgentStatus", "w" );
   mount( cell( "stageAgentStatus/maintExit/MaintenanceMode" ), "Stage::AgentStatus", "w" );
   mount( cell( "stage/maintEnter/progress" ), "Stage::ProgressDir", "r" );
   mount( cell( "stage/maintExit/progress" ), "Stage::ProgressDir", "r" );
   mount( cell( "stage/maintEnter/completionstatus" ), "Stage::CompletionStatusDir", "r" );
   mount( cell( "stage/maintExit/completionstatus" ), "Stage::CompletionStatusDir", "r" );
   group->doClose( false, "", 0.0 );
}

void RateMonSmLoader::doMountsComplete( Dovra::MountStatus mountStatus, Kel::Ptr<Dovra::EntityManager> entityManager ) {
   KEL_ASSERT_TEXT( mountStatus == Dovra::mountSuccess_, "mountStatus == Dovra::mountSuccess_" );
   TRACE( 4, "RateMonSmLoader::doMountsComplete" );
   RING( 3, "RateMonSmLoader - doMountsComplete" );
   createErrdisableEntity( entityManager );
   startCounterReader( entityManager );
   rateMonSmIs( newRateMonSm( inputs( entityManager ) ) );
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
   auto const writerStatusDir = entityManager->getEntity<Kel::Dir>( "interface/ethIntfCounter/writerStatus" );
   ethIntfCounterReaderSmIs( new Interface::EthIntfCounterReaderSm( context_->quillEntityManager(), writerStatusDir ) );
   ethIntfCounterReaderSm()->enableLegacyShmemManSupport();
   ethIntfCounterReaderSm()->handleInitialized();
}

RateMonSmInputs RateMonSmLoader::inputs( Kel::Ptr<Dovra::EntityManager> const & entityManager ) const {
   Dovra::EntityManager const & db = *entityManager;
   auto const cell = []( char const * path ) { return Cell::path( path, 0 ); };
   RateMonSmInputs in;
   in.phyCounterDir = ethIntfCounterReaderSm()->allEthIntfCounterPtrDir();
   in.lagConfigDir = db.getEntity<Lag::Config>( "lag/config" );
   in.vlanStatusDir = db.getEntity<Bridging::VlanStatusDir>( "bridging/vlan/status" );
   in.allIntfStatusDir = db.getEntity<Interface::AllIntfStatusDir>( "interface/status/all" );
   in.unitStatusDir = db.getEntity<Maintenance::Unit::StatusDir>( "maintenance/unit/status" );
   in.maintenanceGroupDir = db.getEntity<Maintenance::MaintenanceGroup::ConfigDir>( "maintenance/group/config" );
   in.intfGroupStatusDir = db.getEntity<IntfGroup::StatusDir>( "group/status/interface" );
   in.intfProfileConfigDir = db.getEntity<IntfMaintenanceProfile::ConfigDir>( "maintenance/profile/config/interface" );
   in.intfToGroupDir = db.getEntity<IntfMaintenance::IntfToGroupDir>( "maintenance/mapping/member/interface" );
   in.groupToUnitDir = db.getEntity<Maintenance::GroupToUnitDir>( "maintenance/mapping/group" );
   auto const causes = db.getEntity<Kel::Dir>( "interface/errdisable/cause" );
   auto const msCause =
      causes ? Kel::dynamicPtrCast<Errdisable::CauseStatus>( causes->entityRef( errdisableCause ) ) : nullptr;
   KEL_ASSERT_TEXT( msCause, "msCause && \" errdisable cause maintenance-shutdown is NULL \"" );
   in.errDisableCauseStatus = msCause;
   in.monIntfStatusDir = db.getEntity<Maintenance::MonIntfStatusDir>( "maintenance/interface/status/ratemon" );
   in.defaultIntfProfile =
      db.getEntity<Maintenance::Profile::DefaultProfile>( "maintenance/profile/config/default/interface" );
   in.maintEnterCompletionStatus =
      db.getEntity<Stage::CompletionStatusDir>( cell( "stage/maintEnter/completionstatus" ) );
   in.maintExitCompletionStatus =
      db.getEntity<Stage::CompletionStatusDir>( cell( "stage/maintExit/completionstatus" ) );
   in.maintEnterProgressDir = db.getEntity<Stage::ProgressDir>( cell( "stage/maintEnter/progress" ) );
   in.maintExitProgressDir = db.getEntity<Stage::ProgressDir>( cell( "stage/maintExit/progress" ) );
   in.maintEnterAgentConfig = db.getEntity<Stage::AgentConfig>( cell( "stageInput/maintEnter/MaintenanceMode" ) );
   in.maintExitAgentConfig = db.getEntity<Stage::AgentConfig>( cell( "stageInput/maintExit/MaintenanceMode" ) );
   in.maintEnterAgentStatus = db.getEntity<Stage::AgentStatus>( cell( "stageAgentStatus/maintEnter/MaintenanceMode" ) );
   in.maintExitAgentStatus = db.getEntity<Stage::AgentStatus>( cell( "stageAgentStatus/maintExit/MaintenanceMode" ) );
   return in;
}

void RateMonSmLoader::prepareToDie() {
   TRACE( 4, "called" );
   mountGroupsDel();
   if( rateMonSm() ) rateMonSm()->prepareToDie();
   rateMonSmDel();
   if( ethIntfCounterReaderSm() ) ethIntfCounterReaderSm()->prepareToDie();
   ethIntfCounterReaderSmDel();
   pluginInfoDumperDel();
}

}  // namespace MaintenanceMode
