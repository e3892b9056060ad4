// Runs the programs that a stage list names.
//
// Owned by the agent. A hook is started at the end of the turn that asked for it, when the store has what led to it: so
// none is run for a request that a crash has undone. It is called by its arguments, without a shell, from the root
// directory, with an environment of MAINT_UNIT, MAINT_OP ("enter" or "exit"), MAINT_GENERATION, MAINT_STAGE, PATH and
// nothing else, standard input empty, no descriptor but the three, no capability and no way to get one, and a process
// group of its own. It keeps this process's user and groups.
//
// Only a program that an outsider cannot have put there is run (hooks/Trusted.h).
//
// What it writes goes to the log line by line, 64 KiB at most; the rest is read and dropped. Its time is the stage's;
// giveUp(), or the end of the agent, also its sudden one, ends it and whatever else it has started: first politely,
// after two seconds not. A hook that ends leaves nothing running either, and is over when nothing is. A unit's next
// hook waits until the one before it has gone.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "loop/AsioLoop.h"
#include "units/Hooks.h"

namespace Host {

class ProgramHooks final : public Service::Hooks {
 public:
   // Where a line of output goes. `hook` reads "bgp of unit fabric".
   using Log = std::function<void( std::string const & hook, std::string const & line )>;
   // Whether what led to a hook is kept. While it is not, hooks wait; it is asked again every second.
   using MayRun = std::function<bool()>;

   // `loop` outlives this. Made when the loop of activities exists.
   ProgramHooks(
      AsioLoop & loop, Log log, MayRun mayRun = [] { return true; } );
   ~ProgramHooks() override;

   // Fails with a sentence: "exit status 3: its last line of output", "ended by signal 9 (Killed)", "/x/y: no such
   // file", "/x/y: writable by others". Done is never called from within this.
   void run( Service::HookRequest const & request, Done done ) override;
   void giveUp( std::string const & unit ) override;

   // Why this program would not be run; empty when it would. For the check of a configuration.
   [[nodiscard]] static std::string objection( std::string const & program );

 private:
   class Impl;
   std::unique_ptr<Impl> const impl_;
};

}  // namespace Host
