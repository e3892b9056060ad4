// What an agent keeps, as lines that can be compared: of one agent before and after a transaction, and of one life with
// the same life in which nobody died.
#pragma once

#include <map>
#include <string>

#include "Points.h"
#include "links/HeldLinks.h"
#include "state/MaintenanceState.h"

namespace Kills {

// "unit fabric" -> "entering 1", "hold up1" -> "held".
using Kept = std::map<std::string, std::string>;

[[nodiscard]] Kept kept( Dovra::EntityManager & database, Maintenance::MaintenanceState const & state );

// The durable steps from one to the other.
[[nodiscard]] PointSet stepsBetween( Kept const & before, Kept const & after );

}  // namespace Kills
