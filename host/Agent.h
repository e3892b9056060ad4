// maintd put together: one loop, one state database, the plug-in, and what feeds and serves them.
//
//    configuration --> ConfigRecords --+                        +--> UnitView --> API --> maintctl
//    rtnetlink     --> LinkFeed -------+--> state database -----+
//    RTM_GETSTATS  --> CounterFeed --> counter table --> plug-in: RateMonPlugin.so
//    API           --> UnitService --> stage records --^
//
// Owns all of it, in the order in which it must come and go: the plug-in goes first.
#pragma once

#include <string>

#include "api/Api.h"
#include "config/Config.h"
#include "feed/CounterFeed.h"
#include "feed/LinkFeed.h"
#include "loop/AsioLoop.h"
#include "plugin/PluginContext.h"
#include "quill/EntityManager.h"
#include "service/ConfigRecords.h"
#include "service/UnitService.h"
#include "service/UnitView.h"

namespace Host {

class Agent {
 public:
   struct Options {
      std::string plugin;        // path of RateMonPlugin.so
      std::string socket;        // path of the API's unix socket
      std::string counterTable;  // path of the shared counter table; empty: this process's memory
   };

   // Everything but the API's answers is ready afterwards. Throws what its parts throw: the plug-in cannot be loaded, the
   // socket is in use, the kernel does not answer.
   Agent( Config::Config const & config, Options const & options );
   // Takes the plug-in down in order.
   ~Agent();

   // Serves until SIGTERM or SIGINT.
   void run();

 private:
   void startPlugin( std::string const & path );
   void watchLinks();

   Config::Config const config_;
   Kel::Ptr<Kel::Clock> const clock_;
   Kel::ActivityLoop activityLoop_;
   AsioLoop loop_;
   Kel::Ptr<Dovra::EntityManager> const database_;
   Maintenance::MaintenanceState state_;
   KelQuill::CounterWriter counterWriter_;
   LinkFeed linkFeed_;
   Linux::LinkMonitor linkMonitor_;
   CounterFeed counterFeed_;
   Kel::Ptr<KelQuill::EntityManager> const quill_;
   ConfigRecords configRecords_;
   UnitService unitService_;
   UnitView unitView_;
   Kel::Ptr<Kel::Dir> const pluginDir_;
   Maintenance::PluginContext pluginContext_;
   Api api_;
   HttpServer server_;
};

}  // namespace Host
