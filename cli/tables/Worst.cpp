#include "tables/Worst.h"

#include <algorithm>
#include <limits>
#include <map>
#include <string_view>
#include <tuple>

namespace Cli {

namespace {

// How bad it is, and among equals how long it may take.
std::pair<int, double> badness( Object const & intf ) {
   if( yes( intf, "settled" ) ) return { 0, 0 };
   std::string const verdict = text( intf, "verdict" );
   std::string const pace = text( intf, "pace" );
   double const ever = std::numeric_limits<double>::infinity();
   if( verdict == "missing" ) return { 8, 0 };
   if( verdict == "unwatched" ) return { 7, 0 };
   if( verdict == "loud" && pace == "stuck" ) return { 6, 0 };
   if( verdict == "loud" && pace.empty() ) return { 5, 0 };
   if( verdict == "loud" ) return { 4, number( intf, "quietInSeconds" ).value_or( ever ) };
   if( verdict == "waiting" ) return { 3, 0 };
   return { 2, number( intf, "stillNeededSeconds" ).value_or( ever ) };
}

}  // namespace

std::vector<Object const *> worstFirst( Object const & unit ) {
   std::vector<std::tuple<int, double, Object const *>> ranked;
   for( auto const & value : list( unit, "interfaces" ) ) {
      Object const & intf = object( value );
      if( text( intf, "verdict" ).empty() ) continue;
      auto const [rank, seconds] = badness( intf );
      ranked.emplace_back( rank, seconds, &intf );
   }
   std::ranges::stable_sort( ranked, []( auto const & a, auto const & b ) {
      return std::tie( std::get<0>( a ), std::get<1>( a ) ) > std::tie( std::get<0>( b ), std::get<1>( b ) );
   } );
   std::vector<Object const *> sorted;
   for( auto const & [rank, seconds, intf] : ranked ) sorted.push_back( intf );
   return sorted;
}

std::string standing( Object const & intf ) {
   std::string const verdict = text( intf, "verdict" );
   bool const settled = yes( intf, "settled" );
   bool const needsTime = verdict == "quiet" || verdict == "down" || verdict == "gone";
   if( needsTime && !settled ) return verdict + " but not for long enough";
   return verdict == "quiet" ? "proven quiet" : verdict;
}

std::string standings( std::vector<Object const *> const & intfs ) {
   std::map<std::string, std::size_t> counts;
   for( Object const * const intf : intfs ) ++counts[standing( *intf )];
   std::vector<std::pair<std::string, std::size_t>> most( counts.begin(), counts.end() );
   std::ranges::stable_sort( most, std::ranges::greater(), []( auto const & each ) { return each.second; } );
   std::string all;
   for( auto const & [what, count] : most ) {
      all.append( all.empty() ? "" : ", " ).append( std::to_string( count ) ).append( " " ).append( what );
   }
   return all;
}

}  // namespace Cli
