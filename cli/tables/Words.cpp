#include "tables/Words.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Cli {

namespace {

struct Word {
   std::string_view name;
   char const * word;
};

constexpr std::array words{
   // of a unit
   Word{ "inMaintenance", "in maintenance" },
   // of the rate monitor and an interface
   Word{ "notMonitoring", "not watched" },
   Word{ "thresholdMonitoring", "draining" },
   Word{ "passiveMonitoring", "watched" },
   Word{ "monitoringStopped", "no longer watched" },
   // of a stay in maintenance
   Word{ "underway", "under way" },
   Word{ "deadline", "deadline passed" },
};

}  // namespace

std::string word( std::string const & name ) {
   auto const * const found = std::ranges::find( words, name, &Word::name );
   return found == words.end() ? name : found->word;
}

std::string wordCell( Object const & row, char const * member, Clocks const & clocks ) {
   return word( plainCell( row, member, clocks ) );
}

std::string counted( std::size_t count, std::string const & what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

}  // namespace Cli
