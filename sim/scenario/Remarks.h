// What whoever wrote a scenario by hand may wonder about at its end: a unit for which nothing happens, an interface
// that nobody watches. The rate monitor passes over both without a word, as it would in an agent.
#pragma once

#include <string>
#include <vector>

#include "world/World.h"

namespace Sim {

// A sentence each, of units that are on their way or in maintenance now. Of a world that has a configuration none: its
// service says why in the unit's status.
[[nodiscard]] std::vector<std::string> remarks( World & world );

}  // namespace Sim
