#include "maintenance/MaintenanceService.h"

#include <algorithm>
#include <utility>

#include "kel/NearMiss.h"
#include "links/HeldLinks.h"

namespace Service {

using Maintenance::Unit::State;

namespace {

bool isUnderWay( Maintenance::Unit::Status const & unit ) {
   return unit.state() != State::unknown && unit.state() != State::active;
}

std::string askedForBy( std::string const & whom ) { return whom.empty() ? "" : ", asked for by " + whom; }

}  // namespace

MaintenanceService::MaintenanceService( Host const & host, Config::Config config )
   : state_( host.state ),
     events_( host.events ? host.events : std::make_shared<EventLog>( nullptr, host.wallClockOffset ) ),
     records_( host.state, std::move( config ) ),
     ledger_(
        *host.database, host.state, host.counters,
        [&links = host.links]( Lumo::IntfId intf ) { return links.neverWatched( intf ); }, *events_ ),
     units_(
        { host.state, records_, ledger_, host.links, host.hooks, *events_, host.wallClockOffset, host.neverShut } ),
     views_( host.state, records_, units_, ledger_, heldLinkDir( *host.database ) ),
     linkEvents_(
        host.state.intfStatus, [this]( Lumo::IntfId intf ) { return !records_.unitsOf( intf ).empty(); },
        [this]( Lumo::IntfId intf, std::string const & text ) {
           tellOf( intf, { .kind = EventKind::link, .text = text } );
        } ) {
   tellTakenOver();
}

std::vector<std::string> MaintenanceService::reload( Config::Config config, std::string const & requestedBy ) {
   // Somebody who reloads from inside a write of a reload: that one walks through what this one would replace.
   auto refusals = reloading_ ? std::vector<std::string>{ "another configuration is being taken over at this moment" }
                              : units_.refusals( config );
   if( !refusals.empty() ) {
      tellNotReloaded( refusals, requestedBy );
      return refusals;
   }
   reloading_ = true;
   records_.configIs( std::move( config ) );
   ledger_.handleProfiles();
   units_.handleConfig();
   reloading_ = false;
   events_->tell( { .kind = EventKind::reload, .text = "done" + askedForBy( requestedBy ) } );
   return {};
}

void MaintenanceService::tellNotReloaded( std::vector<std::string> const & why, std::string const & requestedBy ) {
   events_->tell( { .kind = EventKind::reload,
                    .text = "refused" + askedForBy( requestedBy ) + ": " + someOf( why, "; " ),
                    .severity = Severity::warning } );
}

void MaintenanceService::tellRefused( std::string const & unit, std::string const & request,
                                      std::string const & requestedBy, std::vector<std::string> const & why ) {
   events_->tell( { .kind = EventKind::request,
                    .text = request + askedForBy( requestedBy ) + ", is refused: " + someOf( why, "; " ),
                    .severity = Severity::warning,
                    .unit = Kel::String8( unit ) } );
}

bool MaintenanceService::concerns( Event const & event, std::string const & unit ) const {
   if( event.unit || !event.interface ) return event.unit && event.unit->view() == unit;
   auto const intf = Lumo::IntfId::known( event.interface->str() );
   auto const units = intf ? records_.unitsOf( *intf ) : std::vector<std::string>();
   return std::ranges::find( units, unit ) != units.end();
}

void MaintenanceService::tellTakenOver() const {
   std::vector<std::string> units;
   for( auto [name, unit] : state_.unitStatus->statusIteratorConst() ) {
      if( isUnderWay( *unit ) ) units.push_back( name.str() + " (" + enumName( unit->state() ) + ")" );
   }
   if( units.empty() ) return;
   events_->tell( { .kind = EventKind::agent,
                    .text = "took over " + std::to_string( units.size() ) + ( units.size() == 1 ? " unit" : " units" ) +
                            " under way: " + someOf( units ) } );
}

void MaintenanceService::tellHold( Lumo::IntfId intf, Severity severity, std::string const & text ) {
   tellOf( intf, { .kind = EventKind::hold, .text = text, .severity = severity } );
}

// With the unit, where there is just one that it can concern.
void MaintenanceService::tellOf( Lumo::IntfId intf, Told what ) const {
   what.interface = intf;
   auto const units = records_.unitsOf( intf );
   if( units.size() == 1 ) {
      what.unit = Kel::String8( units.front() );
      auto const record = state_.unitStatus->status( what.unit );
      // Of a unit that is active it is that of a stay which is over.
      if( record && isUnderWay( *record ) ) what.generation = record->genId();
   }
   events_->tell( what );
}

// Of a link that is not there: one that is, and has nearly its name.
std::string MaintenanceService::meant( Lumo::IntfId intf ) const {
   if( state_.intfStatus->intfStatus( intf ) ) return "";
   // Where only numbers differ another link is meant, which is not there yet.
   auto const letters = []( std::string_view name ) {
      std::string text( name );
      std::erase_if( text, []( char c ) { return c >= '0' && c <= '9'; } );
      return text;
   };
   std::vector<std::string> names;
   for( auto const [link, status] : state_.intfStatus->intfStatusIteratorConst() ) {
      if( letters( link.name() ) != letters( intf.name() ) ) names.emplace_back( link.name() );
   }
   return Kel::didYouMean( intf.name(), names );
}

std::vector<std::string> MaintenanceService::warnings() const {
   std::vector<std::string> found;
   for( Config::Unit const & unit : config().units ) {
      for( Lumo::IntfId const intf : records_.interfacesOf( unit.name ) ) {
         std::string const trouble = units_.neverProven( intf );
         if( trouble.empty() ) continue;
         found.push_back( "unit " + unit.name + ": " + std::string( intf.name() ) + ": " + trouble + meant( intf ) );
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
