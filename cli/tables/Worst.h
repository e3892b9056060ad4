// The interfaces of a unit in the order in which they hold it up, and what is said of each in a line.
#pragma once

#include <vector>

#include "tables/Members.h"

namespace Cli {

// Those that are judged, the worst first: what can never be proven before what is stuck, loud, slow, unheard of, and
// what only needs time; last what is settled. Equals stay in the order of the configuration.
[[nodiscard]] std::vector<Object const *> worstFirst( Object const & unit );

// "loud", "proven quiet", "quiet but not for long enough": verdict and whether it is settled, for counting equals.
[[nodiscard]] std::string standing( Object const & intf );
// "980 proven quiet, 10 held": how many of each, most first.
[[nodiscard]] std::string standings( std::vector<Object const *> const & intfs );

}  // namespace Cli
