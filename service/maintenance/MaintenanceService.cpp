#include "maintenance/MaintenanceService.h"

#include <utility>

#include "links/HeldLinks.h"

namespace Service {

MaintenanceService::MaintenanceService( Host const & host, Config::Config config )
   : records_( host.state, std::move( config ) ),
     ledger_( *host.database, host.state, host.counters,
              [&links = host.links]( Lumo::IntfId intf ) { return links.neverWatched( intf ); } ),
     units_(
        { host.state, records_, ledger_, host.links, host.hooks, host.onEvent, host.wallClockOffset, host.neverShut } ),
     views_( host.state, records_, units_, ledger_, heldLinkDir( *host.database ) ) {}

std::vector<std::string> MaintenanceService::reload( Config::Config config ) {
   // Somebody who reloads from inside a write of a reload: that one walks through what this one would replace.
   if( reloading_ ) return { "another configuration is being taken over at this moment" };
   auto refusals = units_.refusals( config );
   if( !refusals.empty() ) return refusals;
   reloading_ = true;
   records_.configIs( std::move( config ) );
   ledger_.handleProfiles();
   units_.handleConfig();
   reloading_ = false;
   return {};
}

std::vector<std::string> MaintenanceService::warnings() const {
   std::vector<std::string> found;
   for( Config::Unit const & unit : config().units ) {
      for( Lumo::IntfId const intf : records_.interfacesOf( unit.name ) ) {
         std::string const trouble = units_.neverProven( intf );
         if( trouble.empty() ) continue;
         found.push_back( "unit " + unit.name + ": " + std::string( intf.name() ) + ": " + trouble );
      }
      for( Lumo::IntfId const intf : units_.shutBy( unit.name, {} ) ) {
         std::string const trouble = units_.neverShut( intf );
         if( trouble.empty() ) continue;
         found.push_back( "unit " + unit.name + ": " + std::string( intf.name() ) +
                          ": its profile shuts it down, and " + trouble );
      }
   }
   return found;
}

}  // namespace Service
