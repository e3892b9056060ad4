// This box as records: its links, as they are and as they change, and their counters.
//
//    rtnetlink    --> LinkWatch --> LinkFeed    --> link records
//    RTM_GETSTATS ---------------> CounterFeed --> counter table
//
// Owned by the agent, and by --check, which only looks. Owns the state database. Makes no file but for the counter
// table where one is asked for, changes no link, and loads no plug-in. Its owner has the links
// found, and follows them or not.
#pragma once

#include <functional>
#include <string>

#include "feed/CounterFeed.h"
#include "feed/LinkWatch.h"
#include "quill/EntityManager.h"
#include "state/MaintenanceState.h"

namespace Host {

class Box {
 public:
   // `counterTable`: path of the shared counter table; empty: this process's memory. Throws what its parts throw: the
   // table cannot be made, the kernel gives no socket.
   Box( std::string const & counterTable, Tell const & tell, OnLink onLink );

   // Called after each bulk read of the counters, in its turn; also after one that failed.
   void onReadIs( std::function<void()> onRead ) { onRead_ = std::move( onRead ); }

   [[nodiscard]] Kel::Ptr<Dovra::EntityManager> const & database() const { return database_; }
   [[nodiscard]] Maintenance::MaintenanceState & state() { return state_; }
   [[nodiscard]] Service::LinkRecords & linkRecords() { return linkRecords_; }
   [[nodiscard]] Kel::Ptr<KelQuill::EntityManager> const & counters() const { return counters_; }
   [[nodiscard]] KelQuill::CounterWriter const & counterRows() const { return counterWriter_; }
   [[nodiscard]] Linux::LinkMonitor & linkMonitor() { return linkWatch_.monitor(); }

   // Reports every link there is. In a turn. Throws std::runtime_error where the kernel does not tell: links that
   // nobody knows of yet would be taken for gone.
   void findLinks();

 private:
   Kel::Ptr<Dovra::EntityManager> const database_;
   Maintenance::MaintenanceState state_;
   KelQuill::CounterWriter counterWriter_;
   Service::LinkRecords linkRecords_;
   LinkFeed linkFeed_;
   LinkWatch linkWatch_;
   CounterFeed counterFeed_;
   Kel::Ptr<KelQuill::EntityManager> const counters_;
   std::function<void()> onRead_;
};

}  // namespace Host
