// What the keys do and what the view says, on one page.
#pragma once

#include "watch/Frame.h"

namespace Cli::Watch {

// As many lines as it takes at that width; which of them are shown is the caller's business.
[[nodiscard]] std::vector<Line> helpLines( Size size, Look look );

}  // namespace Cli::Watch
