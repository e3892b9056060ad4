// One line on how the units stand, for `systemctl status`: "fabric 3/12 quiet", "fabric ready; rack DISTURBED, 11/12
// quiet", "2 units, none in maintenance".
//
// Made of the records as they were left by the last turn; changes nothing.
#pragma once

#include <string>

#include "maintenance/MaintenanceService.h"
#include "state/MaintenanceState.h"

namespace Host {

[[nodiscard]] std::string statusLine( Service::MaintenanceService & service,
                                      Maintenance::MaintenanceState const & state );

}  // namespace Host
