// What stands above the interfaces of a unit: where it is, whether it is ready, and what holds it up.
#pragma once

#include "watch/Scene.h"

namespace Cli::Watch {

// "in maintenance"; what is not known is said as it came.
[[nodiscard]] std::string stateText( std::string const & state );

// Where there are not many rows for all of it, one line.
[[nodiscard]] std::vector<Line> headOf( Unit const & unit, int columns, bool oneLine, Look look );

// "held up by up1, 3.2x over", "settled in 18 s if it stays so", "proven quiet up to 3 s ago"; empty where
// nothing is to be said.
[[nodiscard]] std::string outlook( Unit const & unit );

}  // namespace Cli::Watch
