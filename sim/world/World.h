// A box that exists only in memory: the state database, a virtual clock, invented links and counters, and the plug-in
// as the agent runs it.
//
// It plays the host for maintsim and for the tests of the plug-in. Whoever owns it sets what a host would set: in the
// records themselves, or, once the agent has a configuration, by links, traffic and the agent's service. Time moves
// only with advance(). Everything that touches the records happens in a turn of the loop: inTurn() runs work in a turn
// and goes on until nothing is due at the present time.
#pragma once

#include <memory>
#include <string>

#include "kel/ActivityLoop.h"
#include "plugin/PluginContext.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "state/MaintenanceState.h"
#include "world/Agent.h"
#include "world/InventedCounters.h"
#include "world/InventedLinks.h"

namespace Sim {

class World {
 public:
   // Throws Plugin::LoadError when the plug-in's shared object cannot be loaded. One world at a time: the loop is the
   // process's. With a clock step, in seconds, the clock moves on a little with each fresh read, as it does for real
   // work.
   World( std::string const & plugin, double startTime, double clockStep = 0 );
   World( World const & ) = delete;
   World & operator=( World const & ) = delete;
   ~World();

   [[nodiscard]] Kel::Clock const & clock() const { return *clock_; }
   [[nodiscard]] double now() const { return clock_->now(); }
   [[nodiscard]] Kel::ActivityLoop & loop() { return loop_; }
   [[nodiscard]] Kel::Ptr<Dovra::EntityManager> const & database() const { return database_; }
   [[nodiscard]] Maintenance::MaintenanceState const & state() const { return state_; }
   [[nodiscard]] Maintenance::MaintenanceState & state() { return state_; }
   [[nodiscard]] Kel::Ptr<Kel::Dir> const & pluginDir() const { return pluginDir_; }  // its machines stand below
   [[nodiscard]] InventedCounters & counters() { return counters_; }
   [[nodiscard]] Kel::Ptr<KelQuill::EntityManager> const & countersRead() const { return quill_; }
   [[nodiscard]] Service::LinkRecords & linkRecords() { return linkRecords_; }
   [[nodiscard]] InventedLinks & links() { return links_; }
   [[nodiscard]] Agent & agent() { return agent_; }
   [[nodiscard]] KelQuill::CounterWriter const & counterRows() const { return writer_; }
   [[nodiscard]] KelQuill::CounterTable const & counterTable() const { return writer_.table(); }

   void inTurn( Kel::ActivityLoop::Work const & work );
   // Runs what is due until the clock has moved on by `seconds`, which are not negative.
   void advance( double seconds );
   // The clock goes on at once, as over an agent that is held up; then a turn with `work`, and behind it, late, what
   // was due meanwhile.
   void late( double seconds, Kel::ActivityLoop::Work const & work );

   // The plug-in's life, and that of the agent around it. Started within a turn, its mounts complete in a later one.
   // Not started twice, not ended unless started.
   [[nodiscard]] bool running() const { return context_ != nullptr; }
   void start();
   // Takes it down in order. With an agent the records that its store would keep are afterwards as before.
   void stop();
   // Plug-in and agent are gone from one moment to the next: no teardown, timer or handler of theirs ever runs again.
   // The records stay as they are. Their memory stays taken, as none of their code may run to give it back.
   void crash();
   // What the plug-in prints of itself; empty when it does not run.
   [[nodiscard]] std::string dump();

 private:
   Kel::Ptr<Kel::VirtualClock> const clock_;
   Kel::ActivityLoop loop_;
   Kel::Ptr<Dovra::EntityManager> const database_;
   Maintenance::MaintenanceState state_;
   KelQuill::CounterWriter writer_;
   InventedCounters counters_;
   Kel::Ptr<KelQuill::EntityManager> quill_;
   Service::LinkRecords linkRecords_;
   InventedLinks links_;
   Kel::Ptr<Kel::Dir> pluginDir_;
   std::unique_ptr<Maintenance::PluginContext> context_;
   Agent agent_;
};

}  // namespace Sim
