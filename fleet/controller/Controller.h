// The program of the owner: its dispatcher on one loop, the broker, and the API for people and the page.
#pragma once

#include <string>

#include "broker/NatsBroker.h"

namespace Fleet {

struct ControllerOptions {
   std::string inventoryFile;  // read again at SIGHUP
   std::string stateDirectory = "/var/lib/ratemon/fleet";
   std::string socket = "/run/ratemon/fleet.sock";
   std::string listen = {};   // TCP as well, "127.0.0.1:8080"; empty: none
   std::string keyFile = {};  // operators' keys, for changes over TCP; empty: there it is for reading only
   NatsOptions broker = {};   // the owner's
};

// Serves until SIGTERM or SIGINT, which change nothing in the fleet; SIGHUP reads inventory and keys again. Returns the
// program's exit status: 2 where the options, or the files that they name, do not hold; 3 where what must not be
// forgotten is damaged; 1 where something else has failed, which may not another time.
[[nodiscard]] int runController( ControllerOptions const & options );

// Whether the inventory holds, and what is odd about it. The exit status: 0, or 2 where it does not.
[[nodiscard]] int checkInventory( std::string const & file );

}  // namespace Fleet
