// What holds and is hardly meant: sentences for whoever wrote a configuration, which need no box to be said.
#pragma once

#include <string>
#include <vector>

#include "config/Config.h"

namespace Service::Config {

// In the order of the configuration.
[[nodiscard]] std::vector<std::string> oddities( Config const & config );

}  // namespace Service::Config
