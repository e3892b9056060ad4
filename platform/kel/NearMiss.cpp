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

// Insertions, deletions and replacements that lead from one text to the other. Of the full table (Wagner and Fischer's)
// only the present row is kept.
[[nodiscard]] std::size_t editDistance( std::string_view from, std::string_view to ) {
   std::vector<std::size_t> row( to.size() + 1 );
   std::iota( row.begin(), row.end(), std::size_t{ 0 } );
   for( std::size_t i = 0; i < from.size(); ++i ) {
      std::size_t diagonal = std::exchange( row[0], i + 1 );
      for( std::size_t j = 0; j < to.size(); ++j ) {
         std::size_t const replaced = diagonal + ( from[i] == to[j] ? 0 : 1 );
         diagonal = row[j + 1];
         row[j + 1] = std::min( { replaced, diagonal + 1, row[j] + 1 } );
      }
   }
   return row.back();
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
