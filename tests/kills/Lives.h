// Random lives of a box, as short as they can be with everything in them: a configuration, and what operators, cables,
// other programs and machines do one after the other, each when what was before it has settled.
//
// What is done is such that a death costs time and nothing else: after each step there is time enough for all proofs to
// be made anew, and deadlines are for traffic that never goes. So a life has the same views whoever died in it, but for
// the one thing that a death may change: a link that somebody has set up while it was held is taken down once more.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "World.h"
#include "config/Config.h"

namespace Kills {

enum class Deed : uint8_t {
   enter,
   exit,
   traffic,
   quiet,
   down,
   up,
   cableOut,
   cableIn,
   remade,
   remadeDown,
   restart,
   death
};

struct Step {
   Deed deed;
   std::string on;  // a unit or a link; empty for restart and death
};

struct Life {
   Service::Config::Config config;
   bool preserveIpv6;
   double settle;  // s
   std::vector<Step> steps;
};

[[nodiscard]] Life randomLife( uint64_t seed );
[[nodiscard]] std::string text( Step const & step );

// Lives the rest of it in this process, until it is over or the agent is away. Ends the process.
[[noreturn]] void live( Life const & life, World & world, std::string const & storeFile );

}  // namespace Kills
