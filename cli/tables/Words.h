// The words in which people are told of states, verdicts and outcomes. The names that the API gives them are for
// programs, and --json keeps them.
#pragma once

#include <string>

#include "tables/Table.h"

namespace Cli {

// "in maintenance" for "inMaintenance"; what has no word of its own is its own word.
[[nodiscard]] std::string word( std::string const & name );
[[nodiscard]] std::string wordCell( Object const & row, char const * member, Clocks const & );

// "1 interface", "3 interfaces"
[[nodiscard]] std::string counted( std::size_t count, std::string const & what );
// "a, b, c", and of more than `most` the first and how many there are besides: "a, b and 40 more".
[[nodiscard]] std::string listed( std::vector<std::string> const & names, std::size_t most );

}  // namespace Cli
