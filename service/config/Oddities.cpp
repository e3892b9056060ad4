#include "config/Oddities.h"

#include <algorithm>
#include <map>
#include <set>

#include "kel/NearMiss.h"
#include "kel/QuantityText.h"

namespace Service::Config {

namespace {

using Sentences = std::vector<std::string>;
using Kel::durationText;

// What a link carries that does nothing but tell its neighbour of itself every half a minute (LLDP), in kbps.
constexpr double leastTraffic = 0.1;
// As many names as somebody reads.
constexpr std::size_t mostNames = 5;

Profile const * profileOf( Config const & config, Group const & group ) {
   auto const & name = group.profile.value_or( config.defaultProfile );
   auto const found = std::ranges::find( config.profiles, name, &Profile::name );
   return found == config.profiles.end() ? nullptr : &*found;
}

void checkProfile( Config const & config, Profile const & profile, Sentences & all ) {
   std::string const name = "profile " + profile.name + ": ";
   if( profile.thresholdKbps < leastTraffic )
      all.push_back( name + "its threshold of " + Kel::rateText( profile.thresholdKbps * 1000 ) +
                     " is below what an idle link carries, such as LLDP: it may never be met" );
   if( profile.loadIntervalSeconds < profile.sampleIntervalSeconds )
      all.push_back( name + "its load-interval of " + durationText( profile.loadIntervalSeconds ) +
                     " is shorter than its sample-interval of " + durationText( profile.sampleIntervalSeconds ) +
                     ": a single quiet sample counts as proof" );
   bool const used = profile.name == config.defaultProfile ||
                     std::ranges::any_of( config.groups, [&]( auto const & g ) { return g.profile == profile.name; } );
   if( !used ) all.push_back( name + "no group names it, and it is not the default" );
}

// A stage that ends before any interface can have been quiet for long enough always runs out of time.
void checkTimeout( Config const & config, Sentences & all ) {
   auto const & stages = config.stages.maintEnter;
   auto const stage = std::ranges::find( stages, rateMonStage, &Stage::name );
   if( stage == stages.end() || !stage->timeoutSeconds ) return;
   for( Profile const & profile : config.profiles ) {
      if( profile.maxDelaySeconds || profile.loadIntervalSeconds < *stage->timeoutSeconds ) continue;
      all.push_back( "profile " + profile.name + ": its load-interval of " +
                     durationText( profile.loadIntervalSeconds ) + " does not fit into the timeout of the stage " +
                     stage->name + ", " + durationText( *stage->timeoutSeconds ) + ": it always runs out" );
   }
}

void checkUse( Config const & config, Sentences & all ) {
   for( Group const & group : config.groups ) {
      bool const used = std::ranges::any_of(
         config.units, [&]( Unit const & u ) { return std::ranges::count( u.groups, group.name ) > 0; } );
      if( !used ) all.push_back( "group " + group.name + ": no unit has it" );
   }
   for( Unit const & unit : config.units ) {
      bool const empty = std::ranges::none_of( config.groups, [&]( Group const & g ) {
         return !g.interfaces.empty() && std::ranges::count( unit.groups, g.name ) > 0;
      } );
      if( empty ) all.push_back( "unit " + unit.name + ": it has no interfaces, so there is nothing to prove" );
   }
}

// Where several groups claim an interface and do not agree how it is watched. Those that share them share a sentence.
void checkClaims( Config const & config, Sentences & all ) {
   std::map<std::string, std::vector<Group const *>> claims;
   for( Group const & group : config.groups ) {
      for( std::string const & intf : group.interfaces ) claims[intf].push_back( &group );
   }
   std::map<std::vector<Group const *>, std::vector<std::string>> shared;
   for( auto const & [intf, groups] : claims ) {
      std::set<Profile const *> profiles;
      for( Group const * const group : groups ) profiles.insert( profileOf( config, *group ) );
      if( profiles.size() > 1 ) shared[groups].push_back( intf );
   }
   for( auto const & [groups, intfs] : shared ) {
      std::vector<std::string> said;
      for( Group const * const group : groups )
         said.push_back( group->name + " (profile " + group->profile.value_or( config.defaultProfile ) + ")" );
      auto const & winner = groups.front()->profile.value_or( config.defaultProfile );
      all.push_back( Kel::listed( intfs, mostNames ) + ": in the groups " + Kel::listed( said, mostNames ) +
                     "; the profile " + winner +
                     " counts, as its group is written first, unless only units of another "
                     "are in maintenance" );
   }
}

}  // namespace

Sentences oddities( Config const & config ) {
   Sentences all;
   for( Profile const & profile : config.profiles ) checkProfile( config, profile, all );
   checkTimeout( config, all );
   checkUse( config, all );
   checkClaims( config, all );
   return all;
}

}  // namespace Service::Config
