#include "tables/Changes.h"

#include <algorithm>

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
   return text( intf, "interface" ) + ": " + standing( intf ) + ( why.empty() ? "" : ", " + why );
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

std::vector<std::string> Changes::next( Object const & unit ) {
   std::string const state = text( unit, "state" );
   std::string const stage = text( unit, "stage" );
   bool const first = stands_.empty();
   bool const proof = state == "entering" || state == "inMaintenance";
   std::vector<std::string> lines;
   if( std::string const stands = state + "/" + stage; stands != stands_ ) {
      stands_ = stands;
      lines.push_back( word( state ) + ( stage.empty() ? "" : ", stage " + stage ) +
                       ( proof ? ", " + settledText( unit ) : "" ) );
   }
   // On its way out it waits for none of them.
   if( !proof ) return lines;
   std::map<std::string, std::vector<Object const *>> alike;
   auto const news = changed( unit );
   for( Object const * const intf : news ) alike[standing( *intf ) + "/" + pace( *intf )].push_back( intf );
   std::size_t const before = lines.size();
   for( Object const * const intf : news ) {
      auto & group = alike[standing( *intf ) + "/" + pace( *intf )];
      if( group.size() > mostAlone ) {
         lines.push_back( lineOf( group ) );
         group.clear();
      } else if( !group.empty() ) {
         lines.push_back( lineOf( *intf ) );
      }
   }
   // How far it is, at the end of what has brought it there.
   if( !first && lines.size() > before && before == 0 ) lines.back() += " (" + settledText( unit ) + ")";
   return lines;
}

}  // namespace Cli
