// maintfleet simulate: a fleet that there is not, before a broker that there is. For trying out plans and owners, and
// for measuring brokers.
#pragma once

#include <cstdint>
#include <string>

namespace Fleet {

struct SimulateOptions {
   unsigned long boxes = 10;   // "box-1" and so on, each with one unit "fabric"; of no account with an inventory
   std::string inventoryFile;  // empty: none
   std::string url = "nats://127.0.0.1:4222";
   std::string caFile;            // empty: no TLS
   std::string serverName;        // empty: the host of the URL
   std::string keysDirectory;     // of the boxes' seeds, BOX.nk each; empty: they have none
   std::string scriptFile;        // what goes wrong (simulate/Script.h); empty: nothing
   double heartbeatSeconds = 15;  // of no account with an inventory
   double reconnectSeconds = 30;
   double seconds = 0;        // for which it runs; 0: until it is ended
   double reportSeconds = 5;  // from one line on standard output to the next
   uint64_t seed = 1;         // of all that is random
};

// Until it is over, or ended by a signal. Exit status: 0 done, 1 it could not begin.
int runSimulation( SimulateOptions const & options );

}  // namespace Fleet
