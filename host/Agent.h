// maintd put together: one loop, the maintenance service of this box, the plug-in, and what serves them.
//
//    configuration file --> MaintenanceService <-- Box: links, counters
//                             ^    |    |    '--> ProgramHooks
//                     records |    v    v
//                  plug-in: RateMonPlugin.so    Keeper --> Store
//                             |
//                             '--> error-disable entries --> LinkControl --> KernelLinks
//
// Owns all of it, in the order in which it must come and go. The claim to the network namespace comes before anything
// that a second agent must not touch, and the socket before the trace file, which it moves. Link control and store go
// first, so that what the teardown of the others writes reaches neither: the death of the agent changes no link. Before
// all of them go the streams, which read from the others. What an operator should hear of is told to one history of
// events, from which the streams and the system log have it.
#pragma once

#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Box.h"
#include "api/Api.h"
#include "claims/NamespaceLock.h"
#include "control/KernelLinks.h"
#include "control/LinkGuard.h"
#include "events/EventLog.h"
#include "events/SequenceNumbers.h"
#include "hooks/ProgramHooks.h"
#include "http/HttpServer.h"
#include "links/LinkControl.h"
#include "log/StandardError.h"
#include "loop/AsioLoop.h"
#include "loop/ShiftedClock.h"
#include "maintenance/MaintenanceService.h"
#include "metrics/LiveCounters.h"
#include "metrics/Metrics.h"
#include "notify/ServiceManager.h"
#include "plugin/PluginContext.h"
#include "record/Recorder.h"
#include "store/Keeper.h"
#include "store/Store.h"

namespace Host {

class Agent {
 public:
   struct Options {
      std::string configFile;      // read again at each reload
      std::string stateDirectory;  // of the store
      std::string plugin;          // path of RateMonPlugin.so
      std::string socket;          // path of the API's unix socket for those who may change something
      std::string readSocket;      // of the one for everyone, which answers GET only; empty: none
      std::string counterTable;    // path of the shared counter table; empty: this process's memory
      std::string traceFile;       // path of the ring trace; empty: this process's memory
   };

   // `standardError` outlives this. Throws what its parts throw: another agent runs (NamespaceTaken), the socket is in
   // use, the store cannot be used (StoreError).
   Agent( Options options, StandardError & standardError );
   // Lets go of links and store, then takes the plug-in down in order.
   ~Agent();

   // Takes up what an earlier agent left, links first, and starts the plug-in; everything but the API's answers is
   // ready afterwards. Throws what its parts throw: a row of the store fits no record (StoreError), the kernel does not
   // answer, the plug-in cannot be loaded.
   void start( Service::Config::Config config );

   // Serves until SIGTERM or SIGINT; SIGHUP reloads. Streams get a moment to end; a second signal waits for nothing.
   void run();

 private:
   void keepRecords();
   void beginHistory();
   void tell( Service::EventKind kind, Service::Severity severity, std::string const & text );
   void tellHold( Lumo::IntfId intf, Service::Severity severity, std::string const & text );
   void watchLinks();
   void controlLinks( Service::Config::Config const & config );
   void startService( Service::Config::Config config );
   void startPlugin();
   void awaitEnd();
   void stopServing();
   void awaitReload();
   void awaitRetry();
   void handleLink( Lumo::IntfId intf );
   // In a turn. A file that does not hold, or that units under way stand against, changes nothing: the reasons are
   // returned, and told.
   std::vector<std::string> reload( std::string const & requestedBy );
   void tellWarnings();
   // Why a unit should not be taken out of service without being asked twice.
   [[nodiscard]] std::vector<std::string> objections( std::string const & unit,
                                                      std::vector<std::string> const & without,
                                                      std::string const & session );
   // Why what was done is not on disk; empty when it is, now.
   [[nodiscard]] std::string storeTrouble();
   [[nodiscard]] double wallClockOffset() const;

   Options const options_;
   NamespaceLock const claim_;
   Store store_;
   std::string const boot_;
   Kel::Ptr<ShiftedClock> const clock_;
   Kel::ActivityLoop activityLoop_;
   AsioLoop loop_;
   StandardErrorRetry standardErrorRetry_;
   ServiceManager serviceManager_;
   boost::asio::signal_set hangUps_;  // from the start, as one that came earlier would end the process
   boost::asio::signal_set ends_;
   boost::asio::steady_timer retry_;
   boost::asio::steady_timer lastWords_;
   std::optional<Service::SequenceNumbers> numbers_;  // of events
   LiveCounters counters_;
   std::shared_ptr<Service::EventLog> events_;  // null until the store can be written
   std::optional<Service::EventLog::Listener> eventsToLog_;
   std::optional<Service::EventLog::Listener> eventsCounted_;
   HttpServer server_;
   std::optional<HttpServer> readServer_;
   Box box_;
   KernelLinks kernelLinks_;
   LinkGuard guard_;
   ProgramHooks hooks_;
   std::optional<Keeper> keeper_;
   std::vector<std::pair<Lumo::IntfId, std::string>> notes_;  // of link control, for the service
   std::optional<Service::LinkControl> control_;
   std::optional<Service::MaintenanceService> service_;
   std::optional<Recorder> recorder_;
   Kel::Ptr<Kel::Dir> const pluginDir_;
   Maintenance::PluginContext pluginContext_;
   std::optional<Metrics> metrics_;
   std::optional<Api> api_;
};

}  // namespace Host
