// A run as a picture: a timeline of units and interfaces, SVG 1.1.
//
// On top a lane per unit: its states, and where the rate monitor reported it complete. Below a lane per
// interface, in the order of their names: what the rate monitor did with it, its rates against the threshold, spikes
// and shutdown. All lanes share the axis of time and the scale of rates, so that one can be held against another. The
// more interfaces, the lower their lanes; no lane is so low that its name could not be read.
#pragma once

#include <string>

#include "report/History.h"

namespace Report {

// The whole file. The same history gives the same bytes.
[[nodiscard]] std::string plot( History const & history );

}  // namespace Report
