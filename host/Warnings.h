// What is odd about a configuration on this box as it is now, in sentences for whoever wrote it: interfaces that are
// not there or can never be watched, programs that would not be run, IPv6 addresses that would be lost.
#pragma once

#include <string>
#include <vector>

#include "Box.h"
#include "maintenance/MaintenanceService.h"

namespace Host {

// Why maintd never takes this link down; empty where it would.
[[nodiscard]] std::string neverShut( Lumo::IntfId intf );

// About the configuration of a service that runs on this box. Throws Linux::NetlinkError.
[[nodiscard]] std::vector<std::string> warningsOf( Service::MaintenanceService const & service, Box & box );
// As if it were that of this box. Changes nothing and leaves nothing behind. Throws Linux::NetlinkError.
[[nodiscard]] std::vector<std::string> warningsOf( Service::Config::Config const & config );

}  // namespace Host
