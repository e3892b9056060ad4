// The words in which people are told of states, verdicts and outcomes. The names that the API gives them are for
// programs, and --json keeps them.
#pragma once

#include <string>

#include "kel/NearMiss.h"
#include "tables/Table.h"

namespace Cli {

// "in maintenance" for "inMaintenance"; what has no word of its own is its own word.
[[nodiscard]] std::string word( std::string const & name );
[[nodiscard]] std::string wordCell( Object const & row, char const * member, Clocks const & );

// "1 interface", "3 interfaces"
[[nodiscard]] std::string counted( std::size_t count, std::string const & what );
using Kel::listed;

}  // namespace Cli
