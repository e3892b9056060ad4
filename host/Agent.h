// maintd put together: one loop, the maintenance service of this box, the plug-in, and what serves them.
//
//    configuration file --> BoxService: links, counters, units, evidence --> API --> maintctl
//                             ^    |
//                     records |    v
//                  plug-in: RateMonPlugin.so
//
// Owns all of it, in the order in which it must come and go: the plug-in goes first. The socket comes before whatever a
// second agent must not touch, such as the counter table and the trace file. What an operator should hear of goes to
// standard error and to the ring trace, a line each.
#pragma once

#include <boost/asio/signal_set.hpp>
#include <string>
#include <vector>

#include "BoxService.h"
#include "api/Api.h"
#include "loop/AsioLoop.h"
#include "plugin/PluginContext.h"

namespace Host {

class Agent {
 public:
   struct Options {
      std::string configFile;    // read again at each reload
      std::string plugin;        // path of RateMonPlugin.so
      std::string socket;        // path of the API's unix socket
      std::string counterTable;  // path of the shared counter table; empty: this process's memory
      std::string traceFile;     // path of the ring trace; empty: this process's memory
   };

   // Throws what its parts throw: the socket is in use, a file cannot be made, the kernel does not answer.
   Agent( Service::Config::Config const & config, Options options );
   // Takes the plug-in down in order.
   ~Agent();

   // Follows the links and starts the plug-in; everything but the API's answers is ready afterwards. Throws what its
   // parts throw: the plug-in cannot be loaded, the kernel does not answer.
   void start();

   // Serves until SIGTERM or SIGINT; SIGHUP reloads.
   void run();

 private:
   void watchLinks();
   void startPlugin();
   void awaitReload();
   // In a turn. A file that does not hold, or that units under way stand against, changes nothing: the reasons are
   // returned, and told.
   std::vector<std::string> reload();
   void tellWarnings();

   Options const options_;
   Kel::Ptr<Kel::Clock> const clock_;
   Kel::ActivityLoop activityLoop_;
   AsioLoop loop_;
   boost::asio::signal_set hangUps_;  // from the start, as one that came earlier would end the process
   HttpServer server_;
   BoxService box_;
   Kel::Ptr<Kel::Dir> const pluginDir_;
   Maintenance::PluginContext pluginContext_;
   Api api_;
};

// The warnings about a configuration that this box, as it is now, gives cause for. Leaves nothing behind.
[[nodiscard]] std::vector<std::string> warningsOf( Service::Config::Config const & config );

}  // namespace Host
