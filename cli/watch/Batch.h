// The view as lines for a file or a pipe: one an interface and interval, in columns that stay where they are.
#pragma once

#include "watch/Scene.h"

namespace Cli::Watch {

[[nodiscard]] std::string batchHeading( Scene const & scene );
// What each unit is about, the worst first; of a unit of which nothing is to be proven its state. Each with its line
// feed.
[[nodiscard]] std::string batchLines( Scene const & scene, std::string const & time );

}  // namespace Cli::Watch
