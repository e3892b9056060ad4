#include "tables/Changes.h"

#include <algorithm>
#include <utility>

#include "tables/Units.h"
#include "tables/Words.h"
#include "tables/Worst.h"

namespace Cli {

namespace {

// More that change alike at once are told together.
constexpr std::size_t mostAlone = 4;

std::string settledText( Object const & unit ) {
   auto const & all = list( unit, "interfaces" );
   auto const settled = std::ranges::count_if( all, []( auto const & i ) { return yes( object( i ), "settled" ); } );
   return std::to_string( settled ) + " of " + std::to_string( all.size() ) + " settled";
}

// "up1: loud, out 4 Mbps, has to fall below 100 kbps"
std::string lineOf( Object const & intf ) {
   std::string const why = text( intf, "why" );
   // That it needs more time the reason says, too, and how much.
   std::string const verdict = yes( intf, "settled" ) ? standing( intf ) : text( intf, "verdict" );
   return text( intf, "interface" ) + ": " + verdict + ( why.empty() ? "" : ", " + why );
}

std::string pace( Object const & intf ) { return text( intf, "pace" ); }

// "40 interfaces are stuck: eth1, eth2, eth3, eth4 and 36 more"
std::string lineOf( std::vector<Object const *> const & alike ) {
   std::vector<std::string> names;
   for( Object const * const intf : alike ) names.push_back( text( *intf, "interface" ) );
   std::string const how = pace( *alike.front() );
   return counted( names.size(), "interface" ) + ": " + standing( *alike.front() ) +
          ( how.empty() ? "" : " and " + std::string( how == "slow" ? "falling" : how ) ) + ": " +
          listed( names, mostAlone );
}

}  // namespace

std::vector<Object const *> Changes::changed( Object const & unit ) {
   std::vector<Object const *> found;
   for( Object const * const intf : worstFirst( unit ) ) {
      std::string const stands = standing( *intf ) + "/" + pace( *intf );
      std::string & told = told_[text( *intf, "interface" )];
      if( told == stands ) continue;
      // What has been in order from the beginning is only counted.
      bool const news = !told.empty() || !yes( *intf, "settled" );
      told = stands;
      if( news ) found.push_back( intf );
   }
   return found;
}

std::vector<std::string> Changes::interfaceLines( Object const & unit ) {
   std::map<std::string, std::vector<Object const *>> alike;
   auto const news = changed( unit );
   for( Object const * const intf : news ) alike[standing( *intf ) + "/" + pace( *intf )].push_back( intf );
   std::vector<std::string> lines;
   for( Object const * const intf : news ) {
      auto & group = alike[standing( *intf ) + "/" + pace( *intf )];
      if( group.size() > mostAlone ) {
         lines.push_back( lineOf( group ) );
         group.clear();
      } else if( !group.empty() ) {
         lines.push_back( lineOf( *intf ) );
      }
   }
   return lines;
}

std::vector<std::string> Changes::next( Object const & unit ) {
   std::string const state = text( unit, "state" );
   std::string const stage = text( unit, "stage" );
   // On its way out it waits for none of them.
   bool const proof = state == "entering" || state == "inMaintenance";
   std::vector<std::string> lines;
   if( proof ) lines = interfaceLines( unit );
   std::string const stands = state + "/" + stage;
   std::string const before = std::exchange( stands_, stands );
   if( stands != before ) {
      std::string const told =
         word( state ) + ( stage.empty() ? "" : ", stage " + stage ) + ( proof ? ", " + settledText( unit ) : "" );
      // Where everything stands begins with the unit; from then on it comes behind what has brought it there.
      lines.insert( before.empty() ? lines.begin() : lines.end(), told );
   } else if( !lines.empty() ) {
      lines.back() += " (" + settledText( unit ) + ")";
   }
   return lines;
}

}  // namespace Cli
