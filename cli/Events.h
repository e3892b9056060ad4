// maintctl events: what happens, as maintd tells it, for as long as somebody wants to see it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/Client.h"

namespace Cli {

struct EventsOptions {
   std::optional<uint64_t> after;  // go on after the event with this number; absent: from now on
   std::string unit;               // only what concerns it; empty: everything
   bool json = false;              // lines as they come, for programs
};

// Ends by SIGINT or SIGTERM only, and is `done` then: where maintd goes away it waits for it to come back, and goes on
// where it was. Throws NotReached when maintd is not there to begin with.
int events( Client const & client, EventsOptions const & options );

}  // namespace Cli
