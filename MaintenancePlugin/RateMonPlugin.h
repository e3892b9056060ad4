// How the plug-in comes to life inside the maintenance service.
//
// A static RateMonPlugin registers itself with the plug-in loader when the shared object is loaded; the loader later
// calls init, which makes the loader entity RateMonSmLoader in the context's plug-in directory. RateMonSmLoader
// registers the info dumper, mounts every record that any machine reads or writes, and, once all mounts are complete,
// looks each up, makes the error-disable cause, starts the Ethernet counter reader and makes the root state machine.
//
//    created --init--> mounting --all mounts complete--> running --deleted--> torn down
//                               --a mount failed--> assertion: there is no partial start
#pragma once

#include "RateMonSm.h"
#include "dovra/EntityManager.h"
#include "kel/LogHandle.h"
#include "plugin/Loader.h"
#include "plugin/PluginBase.h"
#include "plugin/PluginContext.h"
#include "quill/EthIntfCounterReaderSm.h"

namespace MaintenanceMode {

// The one system-log message of the plug-in: interface, new profile, old profile.
extern Kel::LogHandle mmodeIntfProfileChange;

class RateMonSmLoader;

// Prints the plug-in's whole state on request. Holds the loader by plain back-reference, null until set.
class RateMonPluginInfoDumper final : public Kel::Entity, public Maintenance::DumpPluginInfo {
   KEL_ENTITY( RateMonPluginInfoDumper, "MaintenanceMode::RateMonPluginInfoDumper", Kel::String8, dumperName )
   KEL_REF( RateMonSmLoader *, context )
   KEL_ENTITY_END

   void dump( int fd ) override;
};

class RateMonSmLoader final : public Kel::Entity, public Dovra::Mounter {
   KEL_ENTITY( RateMonSmLoader, "MaintenanceMode::RateMonSmLoader", Kel::Name, loaderName )
   // What was mounted, from the completion of the mounts on; null where there is no such record.
   KEL_REF( Kel::Ptr<Kel::Dir const>, ethIntfCounterWriterStatusDir )
   KEL_REF( Kel::Ptr<Interface::EthIntfCounterReaderSm>, ethIntfCounterReaderSm )
   KEL_REF( Kel::Ptr<Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir const>, phyCounterDir )
   KEL_REF( Kel::Ptr<Lag::Config const>, lagConfigDir )
   KEL_REF( Kel::Ptr<Bridging::VlanStatusDir const>, vlanStatusDir )
   KEL_REF( Kel::Ptr<Interface::AllIntfStatusDir const>, allIntfStatusDir )
   KEL_REF( Kel::Ptr<Maintenance::Unit::StatusDir>, unitStatusDir )
   KEL_REF( Kel::Ptr<Maintenance::MaintenanceGroup::ConfigDir const>, maintenanceGroupDir )
   KEL_REF( Kel::Ptr<IntfGroup::StatusDir const>, intfGroupStatusDir )
   KEL_REF( Kel::Ptr<IntfMaintenanceProfile::ConfigDir const>, intfProfileConfigDir )
   KEL_REF( Kel::Ptr<IntfMaintenance::IntfToGroupDir const>, intfToGroupDir )
   KEL_REF( Kel::Ptr<Maintenance::GroupToUnitDir const>, groupToUnitDir )
   KEL_REF( Kel::Ptr<Errdisable::CauseStatus>, errDisableCauseStatus )
   KEL_REF( Kel::Ptr<Maintenance::MonIntfStatusDir>, monIntfStatusDir )
   KEL_REF( Kel::Ptr<Maintenance::Profile::DefaultProfile const>, defaultIntfProfile )
   KEL_REF( Kel::Ptr<Stage::CompletionStatusDir const>, maintEnterCompletionStatus )
   KEL_REF( Kel::Ptr<Stage::CompletionStatusDir const>, maintExitCompletionStatus )
   KEL_REF( Kel::Ptr<Stage::ProgressDir const>, maintEnterProgressDir )
   KEL_REF( Kel::Ptr<Stage::ProgressDir const>, maintExitProgressDir )
   KEL_REF( Kel::Ptr<Stage::AgentConfig>, maintEnterAgentConfig )
   KEL_REF( Kel::Ptr<Stage::AgentConfig>, maintExitAgentConfig )
   KEL_REF( Kel::Ptr<Stage::AgentStatus>, maintEnterAgentStatus )
   KEL_REF( Kel::Ptr<Stage::AgentStatus>, maintExitAgentStatus )
   KEL_REF( Kel::Ptr<RateMonSm>, rateMonSm )  // made last
   KEL_REF( Kel::Ptr<RateMonPluginInfoDumper>, pluginInfoDumper )
   KEL_REF( Maintenance::PluginContext *, context )  // outlives this
   KEL_ENTITY_END

   ~RateMonSmLoader() override;

   // Registers the dumper and asks for the mounts. The context outlives the loader.
   void init( Maintenance::PluginContext * context );
   void doMountsComplete( Dovra::MountStatus mountStatus, Kel::Ptr<Dovra::EntityManager> entityManager ) override;
   void prepareToDie() override;

 private:
   void mountAll();
   void createErrdisableEntity( Kel::Ptr<Dovra::EntityManager> const & entityManager );
   void startCounterReader( Kel::Ptr<Dovra::EntityManager> const & entityManager );
   void lookUpMounted( Dovra::EntityManager const & entityManager );
   [[nodiscard]] RateMonSmInputs inputs() const;
};

class RateMonPlugin final : public PluginBase<Maintenance::PluginContext> {
 public:
   RateMonPlugin();
   void init( Maintenance::PluginContext * context ) override;

 private:
   Kel::Ptr<RateMonSmLoader> loader_;
};

}  // namespace MaintenanceMode
