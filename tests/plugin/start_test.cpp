// From the load of the plug-in to its running machines: what it asks the host for, and what it is until all of that is
// there.
#include <gmock/gmock.h>

#include "DrainStory.h"
#include "dovra/Mount.h"
#include "plugin/Loader.h"

namespace Test {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

class PluginStart : public DrainStory {};

// The host counts on the list as it is: its order, the modes, and what is mounted twice or never looked up.
TEST_F( PluginStart, asksForTheseMountsInThisOrder ) {
   start();
   auto const loader = world_.pluginDir()->entityRef( "rateMonPlugin" );
   auto const * const mounter = dynamic_cast<Dovra::Mounter const *>( loader.get() );
   ASSERT_TRUE( mounter );
   ASSERT_EQ( mounter->mountGroups().size(), 1u );
   std::vector<std::string> asked;
   for( auto const & mount : mounter->mountGroups()[0]->mounts() ) {
      asked.push_back( mount.mode + " " + mount.path + " " + mount.typeName );
   }
   EXPECT_THAT( asked, ElementsAreArray<std::string>( {
                          "ri interface/ethIntfCounter/writerStatus Kel::Dir",
                          "r interface/config/eth/lag Interface::EthLagIntfConfigDir",
                          "r lag/config Lag::Config",
                          "ri lag/input/config Kel::Dir",
                          "r bridging/vlan/status Bridging::VlanStatusDir",
                          "r maintenance/unit/status Maintenance::Unit::StatusDir",
                          "r maintenance/group/config Maintenance::MaintenanceGroup::ConfigDir",
                          "r group/status/interface IntfGroup::StatusDir",
                          "r maintenance/profile/config/interface IntfMaintenanceProfile::ConfigDir",
                          "r maintenance/mapping/member/interface IntfMaintenance::IntfToGroupDir",
                          "r maintenance/mapping/group Maintenance::GroupToUnitDir",
                          "wi interface/errdisable/cause Kel::Dir",
                          "wi interface/errdisable/causegroup Kel::Dir",
                          "w maintenance/interface/status/ratemon Maintenance::MonIntfStatusDir",
                          "r maintenance/profile/config/default/interface Maintenance::Profile::DefaultProfile",
                          "r maintenance/group/config Maintenance::MaintenanceGroup::ConfigDir",
                          "r cell/0/stageInput/maintEnter/MaintenanceMode Stage::AgentConfig",
                          "r cell/0/stageInput/maintExit/MaintenanceMode Stage::AgentConfig",
                          "w cell/0/stageAgentStatus/maintEnter/MaintenanceMode Stage::AgentStatus",
                          "w cell/0/stageAgentStatus/maintExit/MaintenanceMode Stage::AgentStatus",
                          "r cell/0/stage/maintEnter/progress Stage::ProgressDir",
                          "r cell/0/stage/maintExit/progress Stage::ProgressDir",
                          "r cell/0/stage/maintEnter/completionstatus Stage::CompletionStatusDir",
                          "r cell/0/stage/maintExit/completionstatus Stage::CompletionStatusDir",
                       } ) );
}

TEST_F( PluginStart, hasNothingButATitleToShowUntilItsMountsAreComplete ) {
   world_.start();
   EXPECT_EQ( world_.dump(), "Rate Monitoring information\n" );
   EXPECT_FALSE( state_.errdisableCauses->entityRef( "maintenance-shutdown" ) );
   advance( 0 );
   EXPECT_THAT( world_.dump(), HasSubstr( "\nRateMonSm:\n  initialized : true\n  numMaintEnter: 0\n" ) );
}

TEST_F( PluginStart, isFatalWhereAMountIsMissing ) {
   Kel::Ptr<Kel::Dir> const dir( new Kel::Dir( "plugins" ) );
   Maintenance::PluginContext context( dir, Kel::Ptr<Dovra::EntityManager>( new Dovra::EntityManager ), nullptr );
   EXPECT_DEATH(
      {
         Maintenance::DefaultPluginLoader().initPlugins( context );
         advance( 0 );
      },
      HasSubstr( "mountStatus == Dovra::mountSuccess_" ) );
}

}  // namespace Test
