#include "maintenance/MaintenanceService.h"

#include <utility>

namespace Service {

MaintenanceService::MaintenanceService( Host const & host, Config::Config config )
   : records_( host.state, std::move( config ) ),
     ledger_( *host.database, host.state, host.counters,
              [&links = host.links]( Lumo::IntfId intf ) { return links.neverWatched( intf ); } ),
     units_( { host.state, records_, ledger_, host.links, host.hooks, host.onEvent, host.wallClockOffset } ),
     views_( host.state, records_, units_, ledger_ ) {}

std::vector<std::string> MaintenanceService::reload( Config::Config config ) {
   auto refusals = units_.refusals( config );
   if( !refusals.empty() ) return refusals;
   records_.configIs( std::move( config ) );
   ledger_.handleProfiles();
   units_.handleConfig();
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
   }
   return found;
}

}  // namespace Service
