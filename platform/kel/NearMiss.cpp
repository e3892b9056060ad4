#include "kel/NearMiss.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Kel {

namespace {

// Nobody mistypes a longer name, and comparing costs the product of both lengths.
constexpr std::size_t longest = 64;
// With so many characters its beginning says which name is meant.
constexpr std::size_t tellingStart = 3;

// Insertions, deletions, replacements and swaps of neighbours that lead from one text to the other. Of the full table
// (Wagner and Fischer's) only the last three rows are kept.
[[nodiscard]] std::size_t editDistance( std::string_view from, std::string_view to ) {
   std::vector<std::size_t> beforeLast;
   std::vector<std::size_t> last( to.size() + 1 );
   std::iota( last.begin(), last.end(), std::size_t{ 0 } );
   for( std::size_t i = 0; i < from.size(); ++i ) {
      std::vector<std::size_t> row{ i + 1 };
      for( std::size_t j = 0; j < to.size(); ++j ) {
         std::size_t const replaced = last[j] + ( from[i] == to[j] ? 0 : 1 );
         std::size_t least = std::min( { replaced, last[j + 1] + 1, row[j] + 1 } );
         bool const swapped = i > 0 && j > 0 && from[i] == to[j - 1] && from[i - 1] == to[j];
         if( swapped ) least = std::min( least, beforeLast[j - 1] + 1 );
         row.push_back( least );
      }
      beforeLast = std::exchange( last, std::move( row ) );
   }
   return last.back();
}

}  // namespace

std::string_view nearMiss( std::string_view given, std::span<std::string_view const> names ) {
   if( given.size() > longest ) return {};
   // No more than two edits, and no more than half of what was written: a short text is near to every name.
   std::size_t best = std::min<std::size_t>( 2, given.size() / 2 ) + 1;
   std::string_view found;
   std::string_view longer;
   for( std::string_view const name : names ) {
      if( longer.empty() && given.size() >= tellingStart && name.starts_with( given ) ) longer = name;
      if( name.size() > given.size() + 2 ) continue;
      std::size_t const distance = editDistance( given, name );
      if( distance >= best ) continue;
      best = distance;
      found = name;
   }
   return found.empty() ? longer : found;
}

std::string_view nearMiss( std::string_view given, std::vector<std::string> const & names ) {
   std::vector<std::string_view> const views( names.begin(), names.end() );
   return nearMiss( given, std::span<std::string_view const>( views ) );
}

std::string didYouMean( std::string_view given, std::vector<std::string> const & names ) {
   std::string_view const near = nearMiss( given, names );
   return near.empty() ? "" : "; did you mean \"" + std::string( near ) + "\"?";
}

std::string listed( std::vector<std::string> const & names, std::size_t most ) {
   // One that is left out would not take more room than the words for it.
   std::size_t const shown = names.size() <= most + 1 ? names.size() : most;
   std::string text;
   for( std::size_t i = 0; i < shown; ++i ) text.append( i == 0 ? "" : ", " ).append( names[i] );
   return shown == names.size() ? text : text + " and " + std::to_string( names.size() - shown ) + " more";
}

}  // namespace Kel
