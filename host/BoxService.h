// The maintenance service of this box: what the agent, which serves it, and --check, which only looks, have in common.
//
//    rtnetlink    --> LinkFeed    --> link records --+
//    RTM_GETSTATS --> CounterFeed --> counter table  +--> MaintenanceService
//                              configuration --------+
//
// Owns the state database and all that feeds it. Makes neither socket nor file, but for the counter table where one is
// asked for, and loads no plug-in. Its owner starts the link monitor in a turn, and goes on with it or not.
#pragma once

#include <string>

#include "feed/CounterFeed.h"
#include "feed/LinkFeed.h"
#include "maintenance/MaintenanceService.h"
#include "quill/EntityManager.h"

namespace Host {

class BoxService {
 public:
   // `counterTable`: path of the shared counter table; empty: this process's memory. Throws what its parts throw: the
   // table cannot be made, the kernel does not answer.
   BoxService( Service::Config::Config const & config, std::string const & counterTable,
               Service::UnitService::OnEvent onEvent );

   [[nodiscard]] Kel::Ptr<Dovra::EntityManager> const & database() const { return database_; }
   [[nodiscard]] Kel::Ptr<KelQuill::EntityManager> const & counters() const { return counters_; }
   [[nodiscard]] Linux::LinkMonitor & linkMonitor() { return linkMonitor_; }
   [[nodiscard]] Service::MaintenanceService & service() { return service_; }

 private:
   // Hooks do not get here: a configuration that names any is refused.
   class NoHooks final : public Service::Hooks {
      void run( Service::HookRequest const & request, Done done ) override;
      void giveUp( std::string const & ) override {}
   };

   Kel::Ptr<Dovra::EntityManager> const database_;
   Maintenance::MaintenanceState state_;
   KelQuill::CounterWriter counterWriter_;
   Service::LinkRecords linkRecords_;
   LinkFeed linkFeed_;
   Linux::LinkMonitor linkMonitor_;
   CounterFeed counterFeed_;
   Kel::Ptr<KelQuill::EntityManager> const counters_;
   NoHooks hooks_;
   Service::MaintenanceService service_;
};

}  // namespace Host
