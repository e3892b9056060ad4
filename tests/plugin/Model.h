// What must hold between any two turns, worked out from the records alone, without the plug-in's machines.
#pragma once

#include <map>
#include <set>
#include <string>

#include "world/World.h"

namespace Test {

using UnitInterfaces = std::map<std::string, std::set<std::string>>;

// Per unit that a restart takes up again, the interfaces that are monitored for it once the restart is over.
[[nodiscard]] UnitInterfaces monitoredAfterRestart( Sim::World const & world );
// Per unit that the plug-in serves now, the interfaces that the records say it is to monitor.
[[nodiscard]] UnitInterfaces monitoredByRecords( Sim::World const & world );
// Per unit that the plug-in serves now, what it monitors, and what it has found drained.
[[nodiscard]] UnitInterfaces monitoredNow( Sim::World const & world );
[[nodiscard]] UnitInterfaces drainedNow( Sim::World const & world );

// Fails the test where an aggregate is not the sum of its interfaces' rates, a drained interface is not monitored, one
// is held down that should not be or the reverse, a published record or set contradicts another, or a counter moved
// that never may. For a world whose plug-in runs.
void expectInvariants( Sim::World const & world );
// Fails the test where a record still has a reactor. For a world whose plug-in was stopped.
void expectNothingLeftBehind( Sim::World const & world );

// One of the root's entities, by the names of the references that lead to it.
[[nodiscard]] Kel::Ptr<Kel::Entity const> machine( Sim::World const & world, std::vector<char const *> const & path );

}  // namespace Test
