#include "Warnings.h"

#include <net/if.h>

#include <set>

#include "config/Oddities.h"
#include "control/LinkGuard.h"
#include "hooks/ProgramHooks.h"

namespace Host {

namespace {

void addNames( Service::Config::Config const & config, std::vector<std::string> & warnings ) {
   constexpr std::size_t longest = IFNAMSIZ - 1;  // without the zero at its end
   std::set<std::string_view> told;
   for( auto const & group : config.groups ) {
      for( std::string const & name : group.interfaces ) {
         if( name.size() <= longest || !told.insert( name ).second ) continue;
         warnings.push_back( name + ": no link can ever have this name: it has " + std::to_string( name.size() ) +
                             " bytes, and " + std::to_string( longest ) + " are the most" );
      }
   }
}

void addHooks( std::vector<Service::Config::Stage> const & stages, std::vector<std::string> & warnings ) {
   for( auto const & stage : stages ) {
      std::string const objection = stage.run.empty() ? "" : ProgramHooks::objection( stage.run.front() );
      if( !objection.empty() ) warnings.push_back( "stage " + stage.name + ": " + objection );
   }
}

void addAddresses( Service::MaintenanceService const & service, Box & box, std::vector<std::string> & warnings ) {
   if( service.config().preserveIpv6 ) return;
   std::set<Lumo::IntfId> shut;
   for( auto const & unit : service.config().units ) {
      for( Lumo::IntfId const intf : service.units().shutBy( unit.name, {} ) ) shut.insert( intf );
   }
   for( auto const & [intf, losing] : LinkGuard( box.linkMonitor().table() ).ipv6Losses() ) {
      if( !shut.contains( intf ) ) continue;
      std::string names;
      for( std::string const & name : losing ) names += ( names.empty() ? "" : ", " ) + name;
      warnings.push_back( std::string( intf.name() ) + ": its profile shuts it down, and the kernel drops the IPv6 " +
                          "addresses of " + names + " then; \"preserve-ipv6: true\" keeps those of the link itself" );
   }
}

// For a service that only says what it thinks of its configuration.
class NoHooks final : public Service::Hooks {
   void run( Service::HookRequest const &, Done ) override {}
   void giveUp( std::string const & ) override {}
};

}  // namespace

std::string neverShut( Lumo::IntfId intf ) {
   // By its usual name, so that the answer needs no kernel. Under another name it is refused when it is to be taken
   // down.
   return intf.name() == "lo" ? "it is the loopback, which is never taken down" : "";
}

std::vector<std::string> warningsOf( Service::MaintenanceService const & service, Box & box ) {
   std::vector<std::string> warnings = Service::Config::oddities( service.config() );
   addNames( service.config(), warnings );
   for( std::string const & warning : service.warnings() ) warnings.push_back( warning );
   addAddresses( service, box, warnings );
   addHooks( service.config().stages.maintEnter, warnings );
   addHooks( service.config().stages.maintExit, warnings );
   return warnings;
}

std::vector<std::string> warningsOf( Service::Config::Config const & config ) {
   Kel::ActivityLoop loop( Kel::Ptr<Kel::Clock>( new Kel::RealClock ) );
   Box box( "", {}, {} );
   loop.turn( [&] { box.findLinks(); } );
   NoHooks hooks;
   Service::MaintenanceService const service( { .database = box.database(),
                                                .state = box.state(),
                                                .counters = box.counters(),
                                                .links = box.linkRecords(),
                                                .hooks = hooks,
                                                .events = {},
                                                .wallClockOffset = {},
                                                .neverShut = neverShut },
                                              config );
   return warningsOf( service, box );
}

}  // namespace Host
