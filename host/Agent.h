// maintd put together: one loop, one state database, the plug-in, and what feeds and serves them.
//
//    configuration --> ConfigRecords --+                        +--> UnitView --> API --> maintctl
//    rtnetlink     --> LinkFeed -------+--> state database -----+
//    RTM_GETSTATS  --> CounterFeed --> counter table --> plug-in: RateMonPlugin.so
//    API           --> UnitService --> stage records --^
//
// Owns all of it, in the order in which it must come and go: the plug-in goes first. The socket comes before whatever a
// second agent must not touch, such as the counter table and the trace file.
#pragma once

#include <string>

#include "api/Api.h"
#include "config/Config.h"
#include "feed/CounterFeed.h"
#include "feed/LinkFeed.h"
#include "loop/AsioLoop.h"
#include "plugin/PluginContext.h"
#include "quill/EntityManager.h"
#include "units/ConfigRecords.h"
#include "units/UnitService.h"
#include "views/UnitView.h"

namespace Host {

class Agent {
 public:
   struct Options {
      std::string plugin;        // path of RateMonPlugin.so
      std::string socket;        // path of the API's unix socket
      std::string counterTable;  // path of the shared counter table; empty: this process's memory
      std::string traceFile;     // path of the ring trace; empty: this process's memory
   };

   // Throws what its parts throw: the socket is in use, a file cannot be made, the kernel does not answer.
   Agent( Service::Config::Config const & config, Options const & options );
   // Takes the plug-in down in order.
   ~Agent();

   // Follows the links and starts the plug-in; everything but the API's answers is ready afterwards. Throws what its
   // parts throw: the plug-in cannot be loaded, the kernel does not answer.
   void start();

   // Serves until SIGTERM or SIGINT.
   void run();

 private:
   void watchLinks();
   void startPlugin();

   Service::Config::Config const config_;  // the parts below refer to it
   std::string const plugin_;
   Kel::Ptr<Kel::Clock> const clock_;
   Kel::ActivityLoop activityLoop_;
   AsioLoop loop_;
   HttpServer server_;
   Kel::Ptr<Dovra::EntityManager> const database_;
   Maintenance::MaintenanceState state_;
   KelQuill::CounterWriter counterWriter_;
   LinkFeed linkFeed_;
   Linux::LinkMonitor linkMonitor_;
   CounterFeed counterFeed_;
   Kel::Ptr<KelQuill::EntityManager> const quill_;
   Service::ConfigRecords configRecords_;
   Service::UnitService unitService_;
   Service::UnitView unitView_;
   Kel::Ptr<Kel::Dir> const pluginDir_;
   Maintenance::PluginContext pluginContext_;
   Api api_;
};

}  // namespace Host
