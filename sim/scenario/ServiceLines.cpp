#include "scenario/ServiceLines.h"

#include <algorithm>
#include <array>

#include "kel/Json.h"
#include "kel/NearMiss.h"
#include "maintenance/MaintenanceService.h"
#include "scenario/Arguments.h"

namespace Sim {

using Kel::value;
using Lumo::IntfKind;

namespace {

constexpr char const * aUnit = "a unit's name";
constexpr char const * interfaceName = "an interface's name";
// Of the 12 bits in a frame. The first and the last of them are no VLAN's id, which is the service's business to say.
constexpr uint64_t vlanIdEnd = 4095;

constexpr std::array kinds{
   std::pair{ "ethernet", IntfKind::ethernet }, std::pair{ "port-channel", IntfKind::portChannel },
   std::pair{ "vlan", IntfKind::vlan },         std::pair{ "sub-interface", IntfKind::subIntf },
   std::pair{ "cpu", IntfKind::cpu },           std::pair{ "other", IntfKind::other },
};

bool isUp( Json const & json ) {
   std::string const state = text( json, "\"up\" or \"down\"" );
   if( state != "up" && state != "down" ) {
      throw LineError( json.column, "a link is \"up\" or \"down\", not \"" + state + "\"" );
   }
   return state == "up";
}

IntfKind kind( Json const & json ) {
   std::string const name = text( json, "the kind of a link" );
   auto const found = std::ranges::find( kinds, name, []( auto const & k ) { return std::string( k.first ); } );
   if( found == kinds.end() ) throw LineError( json.column, "there is no kind of link \"" + name + "\"" );
   return found->second;
}

std::vector<std::string> members( Json const & json ) {
   auto const names = texts( json, "a list of interfaces", interfaceName );
   if( std::ranges::count( names, "" ) ) throw LineError( json.column, "a link has a name" );
   return names;
}

bool isTrue( Json const & json ) {
   Kel::Value const value = json.value();
   auto const found = value.as<bool>();
   if( !found ) throw LineError( json.column, "this is true or false" );
   return *found;
}

InventedLinks::Said said( Json const & link ) {
   InventedLinks::Said said;
   if( link.value().as<std::string>() ) {
      said.up = isUp( link );
      return said;
   }
   for( auto const & [name, json] : link.object( "\"up\", \"down\", null or an object" ) ) {
      if( name == "state" ) {
         said.up = isUp( json );
      } else if( name == "kind" ) {
         said.kind = kind( json );
      } else if( name == "vlan" ) {
         // The value is captured under a name of its own because clang 14 captures no structured binding.
         said.vlanId = static_cast<uint16_t>(
            atColumn( json.column, [&number = json] { return Kel::unsignedFromValue( number.value(), vlanIdEnd ); } ) );
      } else if( name == "members" ) {
         said.members = members( json );
      } else if( name == "late" ) {
         said.late = isTrue( json );
      } else {
         throw LineError( json.column,
                          "a link has \"state\", \"kind\", \"vlan\", \"members\" and \"late\", no \"" + name + "\"" );
      }
   }
   return said;
}

// What a link says that has no meaning for its kind would be lost without a word.
void checkKind( Json const & link, Service::LinkReport const & report ) {
   bool const vlan = report.kind == IntfKind::vlan;
   if( report.vlanId != 0 && !vlan ) throw LineError( link.column, "only a link of the kind \"vlan\" has a VLAN" );
   if( report.members.empty() || vlan || report.kind == IntfKind::portChannel ) return;
   throw LineError( link.column, "only links of the kinds \"port-channel\" and \"vlan\" have members" );
}

// The operator's text, laid out as in the line, so that what is wrong with it is said at the line's own columns.
std::string laidOut( Json const & config, std::string_view line ) {
   std::string yaml( config.column - 1, ' ' );
   yaml += line.substr( config.column - 1, config.end - config.column );
   return yaml;
}

Service::Config::Config parsed( Json const & config, std::string_view line ) {
   try {
      return Service::Config::parse( laidOut( config, line ), "" );
   } catch( Service::Config::ConfigError const & error ) {
      std::string all;
      for( auto const & problem : error.problems() ) {
         if( !all.empty() ) all += "; column " + std::to_string( problem.column ) + ": ";
         all += problem.text;
      }
      throw LineError( static_cast<std::size_t>( error.problems().front().column ), all );
   }
}

}  // namespace

ServiceLines::ServiceLines( World & world, Print print ) : world_( world ), print_( std::move( print ) ) {
   world_.agent().onHookIs( [this]( Service::HookRequest const & request ) {
      print_( { { "hook", value( request.stage ) }, { "unit", value( request.unit ) } } );
   } );
}

ServiceLines::~ServiceLines() { world_.agent().onHookIs( {} ); }

void ServiceLines::config( Json const & config, std::string_view line ) {
   static_cast<void>( config.object( "the configuration" ) );
   if( !world_.agent().configured() && world_.running() ) {
      throw LineError( config.column, "the first configuration comes before \"start\"" );
   }
   auto const refusals = world_.agent().configIs( parsed( config, line ) );
   if( refusals.empty() ) return;
   std::vector<Kel::String8> const why( refusals.begin(), refusals.end() );
   print_( { { "config", value( "refused" ) }, { "why", value( why ) } } );
}

void ServiceLines::link( Json const & byName ) {
   for( auto const & [name, link] : byName.object( "an object of links" ) ) {
      if( name.empty() ) throw LineError( link.column, "a link has a name" );
      if( link.value().isNull() ) {
         // An invented name that is only to go must not be interned for the life of the process.
         if( auto const known = Lumo::IntfId::known( name ) ) world_.links().linkDel( *known );
         continue;
      }
      auto const change = said( link );
      Lumo::IntfId const intf( name );
      checkKind( link, world_.links().after( intf, change ) );
      atColumn( link.column, [&] { world_.links().linkIs( intf, change ); } );
   }
}

void ServiceLines::enter( Json const & unit, Json const * without ) {
   std::string const name = text( unit, aUnit );
   auto const names = without ? texts( *without, "a list of interfaces", interfaceName ) : std::vector<std::string>();
   auto const answer = runningService( unit.column ).units().enter( name, names, "maintsim" );
   if( answer.outcome == Service::UnitService::Outcome::unknownUnit ) unknownUnit( unit, name );
   print_( *value( Service::Views::request( "enter", name, answer ) ).as<Kel::Value::Object>() );
}

void ServiceLines::exit( Json const & unit ) {
   std::string const name = text( unit, aUnit );
   auto const answer = runningService( unit.column ).units().exit( name, "maintsim" );
   if( answer.outcome == Service::UnitService::Outcome::unknownUnit ) unknownUnit( unit, name );
   print_( *value( Service::Views::request( "exit", name, answer ) ).as<Kel::Value::Object>() );
}

void ServiceLines::status( Json const & unit ) {
   std::string const name = text( unit, aUnit );
   auto const answer = service( unit.column ).views().unit( name );
   if( !answer ) unknownUnit( unit, name );
   print_( { { "status", value( *answer ) } } );
}

void ServiceLines::ready( Json const & unit ) {
   std::string const name = text( unit, aUnit );
   auto const answer = service( unit.column ).views().ready( name );
   if( !answer ) unknownUnit( unit, name );
   print_( { { "ready", value( answer->ready ) }, { "why", value( answer->why ) } } );
}

Service::MaintenanceService & ServiceLines::service( std::size_t column ) const {
   if( !world_.agent().configured() ) throw LineError( column, "there is no configuration yet" );
   if( !world_.agent().service() ) throw LineError( column, "the agent is not started" );
   return *world_.agent().service();
}

// Without the plug-in nobody would serve a request, as an agent does that has come up.
Service::MaintenanceService & ServiceLines::runningService( std::size_t column ) const {
   auto & found = service( column );
   if( !world_.running() ) throw LineError( column, "the agent is not started" );
   return found;
}

void ServiceLines::unknownUnit( Json const & unit, std::string const & name ) const {
   std::vector<std::string> names;
   for( auto const & each : service( unit.column ).config().units ) names.push_back( each.name );
   std::string const near = Kel::didYouMean( name, names );
   throw LineError( unit.column, "there is no unit \"" + name + "\"" +
                                    ( near.empty() ? "; units: " + Kel::listed( names, 20 ) : near ) );
}

}  // namespace Sim
