// The agent that runs on the invented box: the maintenance service and link control, as maintd has them above its
// plug-in.
//
// Owned by the world, driven by the lines of a scenario. It has nothing to do until it is given a configuration. From
// then on there is a service, first without the plug-in, which the world starts; whenever the agent has been stopped or
// has crashed there is none until it is started again, over the records as they stand. While it is away links and
// configuration may change; the next start finds them.
//
//    configIs --> service --start--> service and plug-in --stop, crash--> away --start--> ...
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/Config.h"
#include "events/EventLog.h"
#include "quill/EntityManager.h"
#include "state/MaintenanceState.h"
#include "units/Hooks.h"
#include "world/InventedLinks.h"

namespace Service {
class LinkControl;
class MaintenanceService;
}  // namespace Service

namespace Sim {

class Agent {
 public:
   // All of it outlives the agent.
   struct Box {
      Kel::Ptr<Dovra::EntityManager> database;
      Maintenance::MaintenanceState & state;
      Kel::Ptr<KelQuill::EntityManager> counters;
      Service::LinkRecords & linkRecords;
      InventedLinks & links;
   };
   // Called for each hook that is run; it succeeds at once.
   using OnHook = std::function<void( Service::HookRequest const & )>;

   explicit Agent( Box const & box );
   ~Agent();

   void onHookIs( OnHook onHook );

   [[nodiscard]] bool configured() const { return config_.has_value(); }
   // The first makes the service; later ones are reloads. Empty when it is taken over, else each reason against it.
   // While the agent is away there is nobody to refuse it.
   std::vector<std::string> configIs( Service::Config::Config config );
   // What an agent that ran before has left of the records that a store keeps, by path; before the first configuration.
   // Throws Kel::AttributeError.
   void keptIs( std::string const & path, Kel::Value const & value );
   // s to add to a time of this world for Unix time, for an agent that is started from now on; without it the clock is
   // known to be invented.
   void wallClockOffsetIs( double seconds ) { wallClockOffset_ = seconds; }
   // Null without a configuration, and while the agent is away.
   [[nodiscard]] Service::MaintenanceService * service() const { return service_.get(); }
   // What an operator would have heard of, of all the agent's lives.
   [[nodiscard]] std::shared_ptr<Service::EventLog> const & events() const { return events_; }

   // Before the plug-in is started, and before it is taken down. Without a configuration they do nothing.
   void start();
   void stop();
   // Nothing of it runs again, not even a destructor; the loop and the records forget it by themselves.
   void crash();

 private:
   class InstantHooks;

   void noteLink( Lumo::IntfId intf, std::string const & text );
   void tellHold( Lumo::IntfId intf, Service::Severity severity, std::string const & text );

   Box const box_;
   std::shared_ptr<Service::EventLog> const events_;
   std::optional<Service::Config::Config> config_;
   std::optional<double> wallClockOffset_;
   std::unique_ptr<InstantHooks> const hooks_;
   std::unique_ptr<Service::LinkControl> linkControl_;
   std::vector<std::pair<Lumo::IntfId, std::string>> earlyNotes_;
   std::unique_ptr<Service::MaintenanceService> service_;
};

}  // namespace Sim
