// An agent on the world's box: link control, the maintenance service and the plug-in over a store, put together in the
// order in which maintd has them, with the world for a kernel.
//
// It is the one thing that its process has, and dies at the moment that the world says. There is no teardown but when
// one is asked for.
#pragma once

#include <memory>
#include <optional>

#include "Kept.h"
#include "Kernel.h"
#include "config/Config.h"
#include "kel/ActivityLoop.h"
#include "links/LinkControl.h"
#include "maintenance/MaintenanceService.h"
#include "plugin/PluginContext.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "store/Keeper.h"
#include "world/InventedCounters.h"

namespace Kills {

class Agent {
 public:
   // The world outlives it. The plug-in is loaded already: once for all agents, before they become processes.
   Agent( World & world, Service::Config::Config const & config, std::string const & storeFile );
   // In order, as at the end of a service.
   ~Agent();

   // As an operator asks, who is answered when the request is on disk.
   void enter( std::string const & unit );
   void exit( std::string const & unit );
   // The link is not as it was, or its traffic.
   void tell( std::string const & link );
   // Until the wall clock says so.
   void runUntil( double time );

   // What it keeps and what stands in the kernel, for comparing.
   [[nodiscard]] std::string view() const;

 private:
   class SlowHooks;
   using Request = std::function<Service::UnitService::Answer( Service::UnitService & )>;

   void request( Request const & carryOut );
   void start( Service::Config::Config const & config );
   void tellChanges();
   void tellLink( std::string const & name );
   // Before it is over, and after.
   void handleTransaction( bool over );

   World & world_;
   Kernel kernel_;
   Host::Store store_;
   double const shift_;  // s, see Keeper.h
   Kel::Ptr<Kel::VirtualClock> const clock_;
   Kel::ActivityLoop loop_;
   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Sim::InventedCounters counters_{ writer_ };
   Kel::Ptr<KelQuill::EntityManager> quill_{ new KelQuill::EntityManager( writer_.table() ) };
   Service::LinkRecords links_{ state_ };
   std::unique_ptr<SlowHooks> hooks_;
   std::unique_ptr<Host::Keeper> keeper_;
   std::unique_ptr<Service::LinkControl> control_;
   std::unique_ptr<Service::MaintenanceService> service_;
   Kel::Ptr<Kel::Dir> const pluginDir_{ new Kel::Dir( "plugins" ) };
   std::unique_ptr<Maintenance::PluginContext> plugin_;
   Kept kept_;           // at the end of the last transaction
   PointSet steps_ = 0;  // of the one that is being made
};

}  // namespace Kills
