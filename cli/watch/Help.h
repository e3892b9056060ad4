// What the keys do and what the view says, on one page.
#pragma once

#include "watch/Frame.h"

namespace Cli::Watch {

// As many rows as it has; what does not fit is the caller's to cut.
[[nodiscard]] std::vector<Line> helpLines( Size size, Look look );

}  // namespace Cli::Watch
