// The agent of a box as a program: between the sockets of its maintd and the broker.
#pragma once

#include <string>

#include "broker/NatsBroker.h"

namespace Fleet {

struct AgentOptions {
   NatsOptions broker;  // with the name of the box
   std::string stateDirectory = "/var/lib/ratemon/fleet-agent";
   std::string controlSocket = "/run/ratemon/control.sock";
   std::string readSocket = "/run/ratemon/read.sock";
   double heartbeatSeconds = 15;  // as the owner's inventory has it
};

// Serves until SIGTERM or SIGINT, which change nothing on the box. Returns the program's exit status, as the owner's
// does (controller/Controller.h).
[[nodiscard]] int runAgent( AgentOptions const & options );

}  // namespace Fleet
